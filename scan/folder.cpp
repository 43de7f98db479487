#include "scan/folder.h"

#include <sys/stat.h>

#include <utility>

#include "softlib/file_system.h"

Folder::Folder(Opened opened, std::string path, const Folder* above)
    : path_(std::move(path)), above_(above), is_link_(opened.followed) {
  struct stat st {};
  if (fstat(opened.fd.get(), &st) != 0) return;
  device_ = st.st_dev;
  inode_ = st.st_ino;
  stream_.reset(fdopendir(opened.fd.get()));
  if (stream_) (void)opened.fd.release();  // the stream owns it now
}

bool Folder::is_empty() const {
  rewinddir(stream_.get());
  while (const dirent* entry = next()) {
    if (!is_dot_entry(entry->d_name)) return false;
  }
  return true;
}

bool Folder::is_below_itself() const {
  const Folder* other = above_;
  while (other != nullptr && (other->device_ != device_ || other->inode_ != inode_))
    other = other->above_;
  return other != nullptr;
}

bool Folder::is_still(const std::string& name) const {
  struct stat st {};
  return fstatat(above_->fd(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 &&
         st.st_dev == device_ && st.st_ino == inode_;
}
