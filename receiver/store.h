// receiver/store.h: the receiving folder and all that is written below it.
//
// A file grows in the hidden folder, is synced and then renamed into place, so a
// reader never sees half of one. Every folder on the way is opened below the
// last without following a symbolic link (openat2(2), RESOLVE_BENEATH |
// RESOLVE_NO_SYMLINKS, or component by component where the kernel lacks it), so
// nothing is written outside.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "receiver/fd.h"

/// Where a file ended up, or why it did not.
struct Delivery {
  bool done = false;
  std::string path;   ///< as the user would write it, when done
  std::string error;  ///< text for the user, when not
};

struct StoreOptions {
  std::string into;            ///< the receiving folder; created when missing
  std::string journals;        ///< for trash journals; empty: in the hidden folder
  std::string incomplete;      ///< for unfinished files; empty: in the hidden folder
  bool sync = true;            ///< sync file and folder before a delivery counts
  bool keep_existing = false;  ///< give the newcomer a numbered name: "a (1).txt"
  mode_t mode = 0666;          ///< permissions of files, less the umask
  std::uint64_t reserve = 0;   ///< bytes that stay free where the receiving folder is
};

class Store {
 public:
  /// Opens the folders, creating what is missing, and locks them against another
  /// receiver until the end. On failure error() tells.
  explicit Store(const StoreOptions& options);

  /// "" when usable; else the text for the user.
  const std::string& error() const { return error_; }

  /// The path of the hidden folder.
  std::string hidden_path() const;

  /// The growing file of the transfer `id`, created empty or opened as it is
  /// (after a restart), for reading and writing. Invalid on failure, errno set.
  Fd open_part(std::uint64_t id);

  /// Deletes the growing file; nothing happens if there is none.
  void drop_part(std::uint64_t id);

  /// The ids of growing files that an earlier run left behind.
  std::vector<std::uint64_t> parts_left();

  /// True if `bytes` more leave the reserve untouched.
  bool has_room(std::uint64_t bytes) const;

  /// Gives the growing file of `id` (open as `fd`) its permissions, syncs it and
  /// moves it to folders/name in the receiving folder, replacing what is there
  /// or under a numbered name. Folders and name are single components, as
  /// safe_folders() and safe_name() give them. What lies on another file system
  /// gets a copy, which takes its name when it is whole and synced; this moves
  /// the offset of `fd`.
  ///
  /// On failure the growing file stays, with one exception: if the folder can't
  /// be synced after the move the file has its place, but may not survive a
  /// power cut.
  Delivery deliver(std::uint64_t id, int fd, const std::vector<std::string>& folders,
                   const std::string& name);

  /// The same into the folder for trash journals, under `name` with the send
  /// time and the transfer id before it, so that later ones do not replace
  /// earlier ones.
  Delivery deliver_journal(std::uint64_t id, int fd, std::int64_t send_time,
                           const std::string& name);

  /// Moves the growing file to the folder for incomplete ones, under the id and
  /// `name`, and writes `note` beside it as NAME.missing.txt. On failure neither
  /// is there, and the growing file stays.
  Delivery keep_incomplete(std::uint64_t id, const std::string& name, const std::string& note);

 private:
  bool open_all();
  bool lock();
  Fd open_part_as(std::uint64_t id, int flags);
  Fd open_folders(const std::vector<std::string>& folders, std::string& path) const;
  bool finish(int fd) const;
  Delivery place(std::uint64_t id, int fd, int folder, const std::string& path,
                 const std::string& name, bool numbered);
  bool move_here(std::uint64_t id, int fd, int folder, std::string& name, bool numbered);
  bool copy_here(std::uint64_t id, int fd, int folder, std::string& name, bool numbered);
  bool write_note(std::uint64_t id, const std::string& name, const std::string& note);

  StoreOptions options_;  ///< paths filled in, mode less the umask
  std::string error_;
  Fd into_;
  Fd hidden_;  ///< locked: a second receiver would go on with our transfers
  Fd parts_;
  Fd journals_;
  Fd incomplete_;
};
