// receiver/deliver/store.h: the receiving folder and all that is written below it.
//
// A file grows in the hidden folder, is synced and then renamed into place, so a
// reader never sees half of one. Every folder on the way is opened below the
// last without following a symbolic link (openat2(2), RESOLVE_BENEATH |
// RESOLVE_NO_SYMLINKS, or component by component where the kernel lacks it), so
// nothing is written outside. The hidden folder must belong to this process's user and be
// writable for no one else: what lies in it is then our own.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "ground/owners.h"
#include "receiver/assemble/part_files.h"
#include "receiver/base/transfer_key.h"

/// Where a file ended up, or why it did not.
struct Delivery {
  bool done = false;
  std::string path;       ///< as the user would write it, when done
  std::string error;      ///< text for the user, when not, or of a sync that failed after it
  bool taken = false;     ///< when not: something is in the way
  bool barred = false;    ///< when not: a file has the name of one of the folders
  bool hopeless = false;  ///< when not: nor will it be later
  bool goes_on = false;   ///< when not: so far nothing is wrong, there is more to do
};

/// Attributes of a file, which its seal may tell.
struct Attributes {
  mode_t mode = 0;                ///< permissions; less the umask in what a seal tells
  std::optional<timespec> mtime;  ///< last modification; if empty, the time of writing stays
};

/// What a seal says that a file is; the names are escaped like those of a TransferRecord.
struct SealedAs {
  std::string name;
  std::string folder;
  Attributes attributes;
};

struct StoreOptions {
  std::string into;            ///< the receiving folder; created when missing
  std::string journals;        ///< for trash journals; empty: in the hidden folder
  std::string incomplete;      ///< for unfinished files; empty: in the hidden folder
  bool sync = true;            ///< sync file and folder before a delivery counts
  bool keep_existing = false;  ///< give the newcomer a numbered name: "a (1).txt"
  mode_t mode = 0666;          ///< permissions of files, less the umask
  bool mode_given = false;     ///< the operator chose `mode`, which then overrides a seal's
  std::uint64_t reserve = 0;   ///< bytes that stay free where the receiving folder is
};

class Store {
 public:
  /// Opens the folders, creating what is missing, and locks them against another
  /// receiver until the end. On failure error() tells.
  explicit Store(const StoreOptions& options);

  /// "" when usable; else the text for the user.
  const std::string& error() const { return error_; }

  /// The path of the hidden folder, and the open folder itself.
  std::string hidden_path() const;
  int hidden_folder() const { return hidden_.get(); }

  /// The open folders that it writes to.
  std::vector<int> folders() const {
    return {into_.get(), hidden_.get(), parts_.folder(), journals_.get(), incomplete_.get()};
  }

  int journals_folder() const { return journals_.get(); }
  int incomplete_folder() const { return incomplete_.get(); }

  bool keeps_existing() const { return options_.keep_existing; }

  /// The path, as the user would write it, of `below` the receiving folder.
  std::string path_to(const std::string& below) const;

  /// The growing files.
  PartFiles& parts() { return parts_; }

  /// True if `bytes` more leave the reserve untouched.
  bool has_room(std::uint64_t bytes) const;

  /// Sets the permissions of the growing file of `key`, syncs it and moves it to
  /// folders/name in the receiving folder, with `replace` in the place of a file that is
  /// there. Folders and name are single components, as safe_folders() and safe_name()
  /// return them. What lies on another file system gets a copy, which takes its name when
  /// it is whole and synced.
  ///
  /// `attributes` are those that its seal tells; without them it gets those of the options.
  ///
  /// On failure the growing file stays. It can be tried again, unless that is hopeless:
  /// after a failed sync nobody knows which bytes are on the disk (fsync(2)).
  Delivery deliver(const TransferKey& key, const std::vector<std::string>& folders,
                   const std::string& name, bool replace,
                   const std::optional<Attributes>& attributes = {});

  /// Syncs the growing file, so that it outlasts a restart of the machine. False on failure.
  bool sync_part(const TransferKey& key);

  /// Returns `folders`, but with a number, "a (1)", for each whose name a file has: the first
  /// number that no file has. The files of one folder thus stay together.
  std::vector<std::string> free_folders(const std::vector<std::string>& folders) const;

  /// A numbered name for `name` that is free in the folder: "a (1).txt". "" if the
  /// folder can't be opened.
  std::string free_name(const std::vector<std::string>& folders, const std::string& name) const;

  /// True if the folder has an entry `name` that is not itself a folder.
  bool has_file(const std::vector<std::string>& folders, const std::string& name) const;

  /// The same as deliver() into the folder for trash journals, under `name` with the send
  /// time and the transfer's key before it, so that later ones do not replace
  /// earlier ones.
  Delivery deliver_journal(const TransferKey& key, std::int64_t send_time, const std::string& name);

  /// Moves the growing file to the folder for incomplete ones, under the key and
  /// `name`, and writes `note` beside it as NAME.missing.txt. On failure neither
  /// is there, and the growing file stays.
  Delivery keep_incomplete(const TransferKey& key, const std::string& name,
                           const std::string& note);

 private:
  bool open_all();
  bool lock();
  Fd open_folders(const std::vector<std::string>& folders, std::string& path) const;
  enum class Moved { kYes, kNo, kUnsafe };
  bool finish(int fd, const Attributes& attributes) const;
  Attributes plain() const { return {options_.mode, {}}; }
  Delivery place(const TransferKey& key, int folder, const std::string& path,
                 const std::string& name, bool replace, const Attributes& attributes);
  Moved move_here(const TransferKey& key, int folder, const std::string& name, bool replace,
                  const Attributes& attributes);
  bool copy_here(const TransferKey& key, int fd, int folder, const std::string& name, bool replace,
                 const Attributes& attributes) const;
  bool write_note(const TransferKey& key, const std::string& name, const std::string& note);

  StoreOptions options_;  ///< paths filled in, mode less the umask
  std::string error_;
  Fd into_;
  Fd hidden_;  ///< locked: a second receiver would go on with our transfers
  PartFiles parts_;
  Fd journals_;
  Fd incomplete_;
  mode_t mask_ = 0;  ///< the umask
};
