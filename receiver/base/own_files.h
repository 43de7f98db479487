// receiver/base/own_files.h: opens the receiver's own files and folders where others may
// have planted something: a stranger's link is not followed, a pipe or device neither
// waited for nor written, a stranger's file not taken for ours.
#pragma once

#include <sys/types.h>

#include <string>

#include "ground/owners.h"

/// The folder `path`; with `create` it is made, with its parents, when missing. A link
/// on the way is followed if its owner is root, this process's user or the owner of
/// what it leads to, which is the rule of proc(5), protected_symlinks, for any folder.
/// Invalid on failure; then `error` is a text for the user.
Fd open_folder(const std::string& path, bool create, std::string& error);

/// "", or why the open `folder` may hold what others put there: it belongs to another
/// user, or its group or all may write to it.
std::string why_not_private(int folder);

/// "", or why `name` in `folder` is not for us to write: it is there, but is no regular
/// file, has another owner or a second name.
std::string why_not_ours(int folder, const std::string& name);

/// The regular file `name` in `folder`, opened with `flags` (no O_CREAT). Invalid on
/// failure, errno set: ELOOP for a link, EPERM for what is no regular file.
Fd open_own(int folder, const std::string& name, int flags);

/// `path` taken apart: the folder ("." or "/" where it names none), and the rest.
struct SplitPath {
  std::string folder;
  std::string name;
};
SplitPath split_path(const std::string& path);

/// Owns a new file that must not last should anything fail: it goes with its owner
/// unless it has been renamed by then.
class Temporary {
 public:
  /// Makes the file in `folder`, which stays open as long as this lasts, with `mode`
  /// less the umask, in the place of one that a killed run left there. On failure fd()
  /// is -1, errno set.
  Temporary(int folder, std::string name, mode_t mode);
  ~Temporary();
  Temporary(const Temporary&) = delete;
  Temporary& operator=(const Temporary&) = delete;

  int fd() const { return fd_.get(); }
  const char* name() const { return name_.c_str(); }

 private:
  int folder_;
  std::string name_;
  Fd fd_;
};

/// Writes `text` to `name` in `folder` by way of the new file `temporary` beside it, so
/// that no one sees half of it. False on failure, errno set; the old file stays then.
bool replace_file(int folder, const std::string& name, const std::string& temporary, mode_t mode,
                  const std::string& text);

/// The same for the file `path`, which lies in `folder`, by way of `path`.tmp. "" or a text
/// for the user on failure; what is there and is no regular file stays.
std::string write_text(int folder, const std::string& path, const std::string& text);
