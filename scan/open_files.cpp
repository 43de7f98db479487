#include "scan/open_files.h"

#include <fcntl.h>

#include <array>
#include <cstdio>
#include <string_view>

#include "softlib/file_system.h"
#include "softlib/owners.h"

namespace {

constexpr std::size_t kLinkBuffer = 4096;  // bytes; one is left for a terminator

Fd open_folder(int parent, const char* name) {
  return Fd(openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

/// The names in an open folder, read in large blocks (getdents64(2)): a stream
/// of the library asks the kernel for more than that at each opening.
class Names {
 public:
  explicit Names(const Fd& folder) : folder_(folder.get()) {}

  /// The next name, valid until the next call; null after the last.
  const char* next() {
    if (at_ == filled_) {
      const ssize_t got = getdents64(folder_, block_.data(), block_.size());
      if (got <= 0) return nullptr;
      at_ = 0;
      filled_ = static_cast<std::size_t>(got);
    }
    const auto* entry = reinterpret_cast<const dirent64*>(block_.data() + at_);
    at_ += entry->d_reclen;
    return entry->d_name;
  }

 private:
  int folder_;
  std::size_t at_ = 0;
  std::size_t filled_ = 0;
  alignas(dirent64) std::array<char, 32768> block_;  // as large as the library's
};

bool begins_with_digit(const char* name) { return name[0] >= '0' && name[0] <= '9'; }

bool leads_to(int folder, const char* link, const std::string& path) {
  std::array<char, kLinkBuffer> target;
  const ssize_t len = readlinkat(folder, link, target.data(), target.size() - 1);
  if (len < 1 || target[0] != '/') return false;  // gone, or a pipe, a socket ...
  return std::string_view(target.data(), static_cast<std::size_t>(len)) == path;
}

}  // namespace

int check_open_file(const std::string& path) {
  const Fd proc = open_folder(AT_FDCWD, "/proc");
  if (!proc) return -1;
  Names processes(proc);
  while (const char* pid = processes.next()) {
    if (begins_with_digit(pid) && check_proc_dir(proc.get(), pid, path) != 0) return 1;
  }
  return 0;
}

int check_proc_dir(int proc, const char* pid, const std::string& path) {
  std::array<char, 280> fd_path;  // NAME_MAX (255, limits.h) and "/fd"
  std::snprintf(fd_path.data(), fd_path.size(), "%s/fd", pid);
  const Fd folder = open_folder(proc, fd_path.data());
  if (!folder) return 0;  // no process, ended, or not ours to read
  Names descriptors(folder);
  while (const char* link = descriptors.next()) {
    if (!is_dot_entry(link) && leads_to(folder.get(), link, path)) return 1;
  }
  return 0;
}
