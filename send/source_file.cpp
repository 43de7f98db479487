#include "send/source_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <utility>

#include "softlib/clock.h"
#include "softlib/links.h"
#include "softlib/open_files.h"

namespace {

// Not asked again sooner: for short transfers the second search would cost too much time.
constexpr std::uint64_t kOpenCheckHoldsMs = 1000;

using State = SourceFile::State;

State state_of(mode_t mode) {
  if (S_ISREG(mode)) return State::kClosed;
  // a folder is visited as a file only if it could not be opened
  return S_ISDIR(mode) ? State::kMissing : State::kIrregular;
}

bool is_same_file(const FileStamp& a, const FileStamp& b) {
  return a.device == b.device && a.inode == b.inode;
}

}  // namespace

SourceFile::SourceFile(Entry entry) : entry_(std::move(entry)), checked_ms_(steady_ms()) {
  struct stat st {};
  if (entry_.path.size() >= PATH_MAX) return;
  if (fstatat(entry_.folder, entry_.name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return;
  if (S_ISLNK(st.st_mode)) {
    link_ = file_stamp(st);
    pinned_ = open_below(entry_.folder, entry_.name.c_str(), O_PATH).fd;
    if (!pinned_ || fstat(pinned_.get(), &st) != 0) return;
  }
  state_ = state_of(st.st_mode);
  stamp_ = file_stamp(st);
}

void SourceFile::open() {
  if (state_ != State::kClosed) return;
  state_ = State::kMissing;
  if (!pinned_)
    pinned_ = Fd(openat(entry_.folder, entry_.name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  // opening can act on a device, so open only the file that was looked at and is still held
  const std::optional<FileStamp> held = file_stamp(pinned_.get());
  if (!held || !is_same_file(*held, stamp_)) return;
  fd_ = open_again(pinned_.get(), O_RDONLY | O_NONBLOCK | O_NOCTTY).fd;
  pinned_ = Fd();
  const std::optional<FileStamp> now = file_stamp(fd_.get());
  if (!now) return;
  state_ = State::kOpen;
  // the stamp comes first, so that bytes appended after it show as a change
  stamp_ = *now;
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

int SourceFile::check_open() {
  checked_ms_ = steady_ms();
  return check_open_file(entry_.path, fd_.get());
}

bool SourceFile::was_opened_since() {
  return steady_ms() - checked_ms_ > kOpenCheckHoldsMs && check_open() != 0;
}

bool SourceFile::is_unchanged(int fd, bool but_change_time) const {
  const std::optional<FileStamp> now = file_stamp(fd);
  if (!now) return false;
  FileStamp wanted = stamp_;
  if (but_change_time) {
    wanted.changed_s = now->changed_s;
    wanted.changed_ns = now->changed_ns;
  }
  return *now == wanted;
}

SourceFile::Look SourceFile::look() const {
  const Look found = look_at(entry_.folder, entry_.name.c_str(), false);
  if (found != Look::kGone) return found;
  // taking it away has set the change time, so compare all but that
  return is_unchanged(fd_.get(), true) ? Look::kGone : Look::kOther;
}

SourceFile::Look SourceFile::look_at_renamed(int folder, const std::string& name) const {
  // renaming sets the change time of the file, but not of the file that a link leads to
  return look_at(folder, name.c_str(), !link_);
}

SourceFile::Look SourceFile::look_at(int folder, const char* name, bool but_change_time) const {
  Fd found(openat(folder, name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
  if (!found) return errno == ENOENT ? Look::kGone : Look::kOther;
  if (link_) {
    const std::optional<FileStamp> link = file_stamp(found.get());
    if (!link || !is_same_file(*link, *link_)) return Look::kOther;
    found = open_target(entry_.folder, found.get(), O_PATH).fd;
  }
  return is_unchanged(found.get(), but_change_time) ? Look::kSame : Look::kOther;
}
