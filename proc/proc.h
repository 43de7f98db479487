// proc/proc.h: at most one copy of the program scans; this is its lock.
//
//   Proc lock(settings.prg_name, settings.run_dir);
//   if (lock.is_already_run()) ...   // a controller: may freeze or stop it
//   else ...                         // the owner: asks lock.terminated()
//
// The lock is the file "RUN_DIR/NAME.lock" with one shared_data record. There
// is no advisory locking: who owns it is the process whose id the record holds,
// for as long as that process exists. Reads and writes of the record move all
// of it; their failures are not reported and show as time-outs.
#pragma once

#include <string>

#include "proc/shared_data.h"

class Proc {
 public:
  /// Takes the lock `name` in the folder `run_dir`, or finds that a live owner has
  /// it. Ends the process with status 1 and a line on standard error if the file
  /// can't be opened, as with an empty `run_dir`.
  Proc(const std::string& name, const std::string& run_dir);

  /// Path of the lock file of `name` in `run_dir`; empty if `run_dir` is.
  static std::string lock_path(const std::string& name, const std::string& run_dir);

  /// True if there is a process `pid`, or that can't be told.
  static bool is_still_running(int pid);

  /// Closes the lock file; an owner deletes it too. (Not when its descriptor
  /// is 0, as in a daemon: the run mode deletes it there.)
  ~Proc();

  Proc(const Proc&) = delete;
  Proc& operator=(const Proc&) = delete;

  /// True if another live copy had the lock when this object was made.
  bool is_already_run() const { return already_run; }

  /// Closes the lock file and deletes it, whosever id it holds.
  void clear_lock();

  /// Like clear_lock(), but leaves a lock file that does not hold the id `owner`:
  /// for when the lock may be gone already, and somebody else's by now.
  void clear_lock_of(int owner);

  // For the owner.

  /// Detaches: the foreground process ends here with status 0 once the child has
  /// written its record (or has died), or with 255 if fork() fails; returns in the child, the new
  /// owner, with the lock as its only descriptor, both console streams silent and the umask 0.
  void daemon_mode();

  /// True if a controller asked for a stop. Holds the caller for as long as a
  /// freeze is in force.
  bool terminated();

  /// terminated(); the lock file is then closed and deleted already.
  bool if_terminated_unlock();

  // For a controller.

  /// Asks the owner to pause; true once it has, false (and the request taken
  /// back) if it has not within `seconds`.
  bool freez(unsigned short seconds);

  /// Lets the owner go on; false if it does not confirm within `seconds`.
  bool unfreez(unsigned short seconds);

  /// Asks the owner to stop, waits up to `ms` (0: one pause of 300 ms) and
  /// then kills it and deletes its lock. True if the owner or its lock file
  /// is gone.
  bool terminate_wait(int ms);

  /// The process id of the owner, as found when this object was made.
  int owner() const { return data.pid; }

 private:
  bool start();
  bool flock_open();
  void flock_close();
  bool flock_read(shared_data* record) const;
  bool flock_write(const shared_data* record) const;
  void frozen();
  void terminate();
  bool wait_terminated(int ms) const;
  static bool kill_process(int pid);
  bool owner_let_go() const;

  int fd = 0;                ///< the open lock file; 0 also when none is open
  bool already_run = false;  ///< start() found a live owner
  std::string lock_name;     ///< path of the lock file
  shared_data data;          ///< the record as last read or written here
  bool fd_is_open = false;   ///< tells descriptor 0 from none
};

/// The lock of this run, for the stop check of a transfer; null when the run
/// mode wants none. Set by the frame; not owned.
extern Proc* pplock;
