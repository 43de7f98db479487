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

/// Returns "", or why others may have put files into the open `folder`: it belongs to
/// another user, or its group or everybody may write to it.
std::string why_not_private(int folder);

/// Returns "", or why we must not write to `name` in `folder`: it exists, but is not a
/// regular file, has another owner or has a second name.
std::string why_not_ours(int folder, const std::string& name);

/// The regular file `name` in `folder`, opened with `flags` (no O_CREAT). Invalid on
/// failure, errno set: ELOOP for a link, EPERM for anything else but a regular file.
Fd open_own(int folder, const std::string& name, int flags);

/// `path` taken apart: the folder ("." or "/" where it names none), and the rest.
struct SplitPath {
  std::string folder;
  std::string name;
};
SplitPath split_path(const std::string& path);

/// Owns a new file that must not stay if anything fails. The destructor deletes it unless
/// it was renamed.
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

/// Writes `text` in the same way to the file `path`, which lies in `folder`, by way of
/// `path`.tmp. Returns "" or, on failure, a text for the user. Fails if `path` exists and is
/// not a regular file.
std::string write_text(int folder, const std::string& path, const std::string& text);
