#include "send/source_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

SourceFile::SourceFile(const std::string& path) {
  struct stat st {};
  // Opening can act on a device, so look first; what is opened may be another
  // object by then, so don't wait on it and look again.
  if (stat(path.c_str(), &st) != 0) return;
  if (S_ISREG(st.st_mode)) {
    fd_ = Fd(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!fd_ || fstat(fd_.get(), &st) != 0) return;
  }
  if (!S_ISREG(st.st_mode)) {
    // a folder comes here as a file only because it can't be opened
    state_ = S_ISDIR(st.st_mode) ? State::kMissing : State::kIrregular;
    return;
  }
  state_ = State::kOpen;
  // the stamp first: what is appended after it shows as a change
  stamp_ = file_stamp(fd_.get()).value_or(FileStamp{});
  size_ = lseek(fd_.get(), 0, SEEK_END);
}

void SourceFile::rewind() const { lseek(fd_.get(), 0, SEEK_SET); }

std::uint64_t SourceFile::read(unsigned char* to, std::uint64_t size) const {
  std::uint64_t total = 0;
  while (total < size) {
    const ssize_t got = ::read(fd_.get(), to + total, size - total);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    total += static_cast<std::uint64_t>(got);
  }
  return total;
}

bool SourceFile::differs_from(const FileStamp& before, const std::string& path) const {
  const std::optional<FileStamp> now = file_stamp(fd_.get());
  return !now || !(*now == before) || changed_since(before, path);
}
