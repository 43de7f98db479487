#include "softlib/open_files.h"

#include <fcntl.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <string_view>

#include "ground/owners.h"
#include "softlib/file_system.h"

namespace {

constexpr std::size_t kLinkBuffer = 4096;  // bytes; one is left for a terminator

constexpr int kNobody = 0;
constexpr int kHeld = 1;
constexpr int kUnknown = -1;

Fd open_folder(int parent, const char* name) {
  return Fd(openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

/// The names in an open folder, read in large blocks with getdents64(2), since opendir(3)
/// makes more system calls for each folder.
class Names {
 public:
  explicit Names(const Fd& folder) : folder_(folder.get()) {}

  /// Returns the next name, valid until the next call; null after the last name, or
  /// if no more can be read, see error().
  const char* next() {
    if (at_ == filled_) {
      const ssize_t got = getdents64(folder_, block_.data(), block_.size());
      if (got < 0) error_ = errno;
      if (got <= 0) return nullptr;
      at_ = 0;
      filled_ = static_cast<std::size_t>(got);
    }
    const auto* entry = reinterpret_cast<const dirent64*>(block_.data() + at_);
    at_ += entry->d_reclen;
    return entry->d_name;
  }

  /// Returns the errno of a failed read, or 0 if there was none.
  int error() const { return error_; }

 private:
  int folder_;
  int error_ = 0;
  std::size_t at_ = 0;
  std::size_t filled_ = 0;
  alignas(dirent64) std::array<char, 32768> block_;  // as large as that of glibc's readdir(3)
};

bool begins_with_digit(const char* name) { return name[0] >= '0' && name[0] <= '9'; }

/// Returns the answer for a process whose descriptors could not be read because of
/// `error`. It counts as holding nothing if it has ended, may not be looked into or
/// is not a process at all.
int answer_to(int error) {
  switch (error) {
    case 0:
    case ENOENT:
    case ESRCH:
    case ENOTDIR:
    case EACCES:
    case EPERM:
      return kNobody;
    default:
      return kUnknown;
  }
}

/// The text of a link in /proc; empty, with an error, if it can't be read.
class LinkText {
 public:
  LinkText(int folder, const char* name)
      : size_(readlinkat(folder, name, text_.data(), text_.size() - 1)),
        error_(size_ < 0 ? errno : 0) {}

  std::string_view get() const {
    return {text_.data(), size_ < 0 ? 0 : static_cast<std::size_t>(size_)};
  }
  int error() const { return error_; }

 private:
  std::array<char, kLinkBuffer> text_;
  ssize_t size_;
  int error_;
};

/// True if `link` of the process `pid` is our own descriptor `except`. Asked only for
/// descriptors that match, so that all the others cost nothing.
bool is_ours(int proc, const char* pid, const char* link, int except) {
  return std::to_string(except) == link && LinkText(proc, "self").get() == pid;
}

}  // namespace

int check_open_file(const std::string& path, int except) {
  const Fd proc = open_folder(AT_FDCWD, "/proc");
  if (!proc) return kUnknown;
  Names processes(proc);
  while (const char* pid = processes.next()) {
    if (!begins_with_digit(pid)) continue;
    if (const int found = check_proc_dir(proc.get(), pid, path, except); found != kNobody)
      return found;
  }
  return processes.error() == 0 ? kNobody : kUnknown;
}

int check_proc_dir(int proc, const char* pid, const std::string& path, int except) {
  std::array<char, 280> fd_path;  // NAME_MAX (255, limits.h) and "/fd"
  std::snprintf(fd_path.data(), fd_path.size(), "%s/fd", pid);
  const Fd folder = open_folder(proc, fd_path.data());
  if (!folder) return answer_to(errno);
  Names descriptors(folder);
  while (const char* link = descriptors.next()) {
    if (is_dot_entry(link)) continue;
    const LinkText target(folder.get(), link);
    if (target.error() == ENOMEM) return kUnknown;  // other errors: closed, or not ours to read
    if (target.get() == path && path[0] == '/' && !is_ours(proc, pid, link, except)) return kHeld;
  }
  return answer_to(descriptors.error());
}
