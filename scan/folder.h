// scan/folder.h: an open folder on the way down through a scan folder.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <sys/types.h>

#include <string>

#include "ground/owners.h"
#include "softlib/links.h"

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NONBLOCK;  // as opendir(3) opens it

class Folder {
 public:
  /// Takes over `opened`, which was opened with kFolderFlags. `above` is the folder that
  /// holds it, or null at the top, and must outlive this object.
  Folder(Opened opened, std::string path, const Folder* above);

  /// False if it could not be opened.
  explicit operator bool() const { return stream_ != nullptr; }

  const std::string& path() const { return path_; }  ///< as the walk spells it
  int fd() const { return dirfd(stream_.get()); }
  bool is_link() const { return is_link_; }  ///< true if it was reached through a link

  /// Returns the next entry, "." and ".." included; null after the last.
  const dirent* next() const { return readdir(stream_.get()); }
  void close() { stream_.reset(); }

  /// True if the folder is empty. Reads it anew.
  bool is_empty() const;

  /// True if one of the folders above is this same folder.
  bool is_below_itself() const;

  /// True if the entry `name` of the folder above is still this folder, and not a link.
  bool is_still(const std::string& name) const;

 private:
  std::string path_;
  const Folder* above_;
  bool is_link_;
  dev_t device_ = 0;
  ino_t inode_ = 0;
  Dir stream_;
};
