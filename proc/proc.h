// proc/proc.h: the lock that lets only one copy of the program scan.
//
//   Proc lock(settings.prg_name, settings.run_dir);
//   if (lock.is_already_run()) ...   // a controller: may freeze or stop it
//   else ...                         // the owner: asks lock.terminated()
//
// The lock is the file "RUN_DIR/NAME.lock" with one shared_data record. There
// is no advisory locking: the owner is the process whose id the record holds, for
// as long as that process exists. The record is always read and written as a
// whole. Failures to do so are not reported and show as time-outs.
#pragma once

#include <string>

#include "proc/shared_data.h"

class Proc {
 public:
  /// Takes the lock `name` in the folder `run_dir`, or finds that a live owner has
  /// it. Ends the process with status 1 and a line on standard error if the file
  /// can't be opened, as with an empty `run_dir`.
  Proc(const std::string& name, const std::string& run_dir);

  /// Returns the path of the lock file of `name` in `run_dir`; "" if `run_dir` is empty.
  static std::string lock_path(const std::string& name, const std::string& run_dir);

  /// True if the process `pid` exists, or if that can't be found out.
  static bool is_still_running(int pid);

  /// Closes the lock file; an owner also deletes it. Does neither when the
  /// descriptor is 0, as in a daemon, whose run mode deletes the file.
  ~Proc();

  Proc(const Proc&) = delete;
  Proc& operator=(const Proc&) = delete;

  /// True if another live copy had the lock when this object was made.
  bool is_already_run() const { return already_run; }

  /// Closes the lock file and deletes it, whatever process id it holds.
  void clear_lock();

  /// Like clear_lock(), but leaves a lock file that does not hold the process id
  /// `owner`: another copy may have taken the lock since.
  void clear_lock_of(int owner);

  // For the owner.

  /// Detaches. The foreground process ends here: with status 0 once the child has
  /// written its record (or has died), or with 255 if fork() fails. The call returns
  /// in the child, which is the new owner. The lock file is then its only open
  /// descriptor, both console streams are silent, and the umask is 0.
  void daemon_mode();

  /// True if a controller asked for a stop. Does not return while a freeze is in
  /// force.
  bool terminated();

  /// Like terminated(), but closes and deletes the lock file before it returns true.
  bool if_terminated_unlock();

  // For a controller.

  /// Asks the owner to pause. Returns true once it has paused; takes the request
  /// back and returns false if it has not within `seconds`.
  bool freez(unsigned short seconds);

  /// Lets the owner go on. Returns false if it does not confirm within `seconds`.
  bool unfreez(unsigned short seconds);

  /// Asks the owner to stop and waits up to `ms` (0: one pause of 300 ms); then
  /// kills it and deletes its lock file. Returns true if the owner or its lock
  /// file is gone.
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

  int fd = 0;                ///< the open lock file; also 0 when it is closed
  bool already_run = false;  ///< start() found a live owner
  std::string lock_name;     ///< path of the lock file
  shared_data data;          ///< the record as last read or written here
  bool fd_is_open = false;   ///< needed because 0 may be an open descriptor
};

/// The lock of this run, for the stop check of a transfer; null in run modes
/// whose transfers no other copy can stop. Set by the frame; not owned.
extern Proc* pplock;
