#include "receiver/deliver/moves.h"

#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <utility>

#include "receiver/base/names.h"

namespace {

constexpr off_t kCopyStep = 1 << 24;

bool exists(int folder, const std::string& name) {
  struct stat st {};
  return fstatat(folder, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0;
}

std::string numbered_name(const std::string& name, std::uint64_t number) {
  return with_suffix(name, " (" + std::to_string(number) + ")");
}

/// A number that is not taken. It is closed in on: a name that came ten thousand
/// times must not cost ten thousand calls each time.
std::uint64_t free_number(int folder, const std::string& name) {
  std::uint64_t taken = 0;
  std::uint64_t free = 1;
  for (; exists(folder, numbered_name(name, free)); free *= 2) taken = free;
  while (free - taken > 1) {
    const std::uint64_t middle = taken + (free - taken) / 2;
    (exists(folder, numbered_name(name, middle)) ? taken : free) = middle;
  }
  return free;
}

/// EEXIST when there is a `name`.
bool rename_new(int from, const char* old, int folder, const std::string& name) {
  if (renameat2(from, old, folder, name.c_str(), RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL && errno != ENOSYS) return false;
  // not on every file system; nor does a link replace anything
  return linkat(from, old, folder, name.c_str(), 0) == 0 && unlinkat(from, old, 0) == 0;
}

}  // namespace

bool rename_to(int from, const char* old, int folder, const std::string& name, bool replace) {
  return replace ? renameat(from, old, folder, name.c_str()) == 0
                 : rename_new(from, old, folder, name);
}

std::string free_name(int folder, const std::string& name) {
  return numbered_name(name, free_number(folder, name));
}

bool copy_contents(int from, int to) {
  struct stat st {};
  if (fstat(from, &st) != 0) return false;
  off_t at = 0;
  while ((at = lseek(from, at, SEEK_DATA)) >= 0) {
    const off_t end = lseek(from, at, SEEK_HOLE);
    if (end < 0 || lseek(to, at, SEEK_SET) < 0) return false;
    while (at < end) {
      errno = EIO;  // in case there is less than was said
      const auto step = static_cast<std::size_t>(std::min(end - at, kCopyStep));
      if (sendfile(to, from, &at, step) <= 0 && errno != EINTR) return false;
    }
  }
  return errno == ENXIO && ftruncate(to, st.st_size) == 0;  // no more data
}
