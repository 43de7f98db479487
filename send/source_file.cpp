#include "send/source_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

namespace {

bool same_time(const std::timespec& a, const std::timespec& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

}  // namespace

SourceFile::SourceFile(const std::string& path) {
  struct stat st {};
  // Opening can act on a device, so look first; what is opened may be another
  // object by then, so don't wait on it and look again.
  if (stat(path.c_str(), &st) != 0) return;
  is_regular_ = S_ISREG(st.st_mode);
  if (!is_regular_) return;
  fd_ = Fd(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!fd_ || fstat(fd_.get(), &st) != 0) return;
  is_regular_ = S_ISREG(st.st_mode);
  size_ = lseek(fd_.get(), 0, SEEK_END);
  modified_ = st.st_mtim;
}

void SourceFile::rewind() const { lseek(fd_.get(), 0, SEEK_SET); }

bool SourceFile::read(unsigned char* to, std::size_t len) const {
  while (len > 0) {
    const ssize_t got = ::read(fd_.get(), to, len);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    to += got;
    len -= static_cast<std::size_t>(got);
  }
  return true;
}

bool SourceFile::changed_since(const SourceFile& before, const std::string& path) const {
  struct stat opened {};
  if (fstat(fd_.get(), &opened) != 0 || opened.st_size != before.size_ ||
      !same_time(opened.st_mtim, before.modified_)) {
    return true;
  }
  struct stat named {};
  const bool replaced = stat(path.c_str(), &named) == 0 &&
                        (named.st_dev != opened.st_dev || named.st_ino != opened.st_ino);
  return replaced;
}
