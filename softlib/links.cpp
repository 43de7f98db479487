#include "softlib/links.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <utility>

namespace {

constexpr int kMostLinks = 40;  // in one path, path_resolution(7)

Opened failed(int error) {
  Opened nothing;
  nothing.error = error;
  return nothing;
}

Opened refused() {
  Opened nothing = failed(ELOOP);
  nothing.refused = true;
  return nothing;
}

Opened opened(int fd) {
  if (fd < 0) return failed(errno);
  Opened something;
  something.fd = Fd(fd);
  return something;
}

/// Resolves one path through folders and links, and counts the links.
class Way {
 public:
  Opened open_path(int folder, const std::string& path, int flags, mode_t mode);
  Opened open_entry(int folder, const char* name, int flags, mode_t mode);
  Opened follow(int folder, const char* name, int link, int flags, mode_t mode);
  bool met_links() const { return links_ > 0; }

 private:
  Opened open_text(int folder, int link, int flags, mode_t mode);

  int links_ = 0;
};

Opened Way::open_path(int folder, const std::string& path, int flags, mode_t mode) {
  if (path.empty()) return failed(ENOENT);
  if (path.size() >= PATH_MAX) return failed(ENAMETOOLONG);
  Fd at;
  if (path[0] == '/') {
    at = Fd(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!at) return failed(errno);
  }
  std::string name;
  for (std::size_t begin = 0, end = 0; begin < path.size(); begin = end + 1) {
    end = std::min(path.find('/', begin), path.size());
    if (end == begin) continue;
    if (!name.empty()) {  // another name follows, so this one must be a folder
      Opened next = open_entry(at ? at.get() : folder, name.c_str(), O_PATH | O_DIRECTORY, 0);
      if (!next) return next;
      at = std::move(next.fd);
    }
    name = path.substr(begin, end - begin);
  }
  if (path.back() == '/') flags = (flags & ~O_CREAT) | O_DIRECTORY;
  return open_entry(at ? at.get() : folder, name.empty() ? "." : name.c_str(), flags, mode);
}

Opened Way::open_entry(int folder, const char* name, int flags, mode_t mode) {
  Opened entry = opened(openat(folder, name, flags | O_NOFOLLOW | O_CLOEXEC, mode));
  // opening a link fails with ELOOP, or ENOTDIR with O_DIRECTORY; with O_PATH it opens the link
  const bool may_be_link = entry ? (flags & (O_PATH | O_DIRECTORY)) == O_PATH
                                 : entry.error == ELOOP || entry.error == ENOTDIR;
  if (!may_be_link) return entry;
  Opened link;
  if (!entry) link = opened(openat(folder, name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
  const Fd& pinned = entry ? entry.fd : link.fd;
  struct stat st {};
  if (!pinned) return failed(link.error);
  if (fstat(pinned.get(), &st) != 0) return failed(errno);
  if (!S_ISLNK(st.st_mode)) return entry;
  return follow(folder, name, pinned.get(), flags, mode);
}

Opened Way::follow(int folder, const char* name, int link, int flags, mode_t mode) {
  if (++links_ > kMostLinks) return failed(ELOOP);
  struct stat st {};
  if (fstat(link, &st) != 0) return failed(errno);
  const uid_t owner = st.st_uid;
  if (owner == 0 || owner == geteuid()) {
    struct statfs fs {};
    // in /proc the text of a descriptor's link need not be a path, and nobody can exchange entries
    if (fstatfs(link, &fs) == 0 && fs.f_type == PROC_SUPER_MAGIC)
      return opened(openat(folder, name, flags | O_CLOEXEC, mode));
    return open_text(folder, link, flags, mode);
  }
  // opening can act on a device or create a file, so look at a stranger's target first
  Opened target = open_text(folder, link, O_PATH, 0);
  if (target.error == ENOENT && (flags & O_CREAT) != 0) return refused();
  if (!target) return target;
  if (fstat(target.fd.get(), &st) != 0) return failed(errno);
  return st.st_uid == owner ? open_again(target.fd.get(), flags & ~O_CREAT) : refused();
}

Opened Way::open_text(int folder, int link, int flags, mode_t mode) {
  std::array<char, PATH_MAX> text;
  const ssize_t len = readlinkat(link, "", text.data(), text.size());
  if (len < 0) return failed(errno);
  return open_path(folder, {text.data(), static_cast<std::size_t>(len)}, flags, mode);
}

}  // namespace

Opened open_below(int folder, const char* name, int flags, mode_t mode) {
  Way way;
  Opened entry = way.open_entry(folder, name, flags, mode);
  entry.followed = way.met_links();
  return entry;
}

Opened open_path(const std::string& path, int flags, mode_t mode) {
  Way way;
  Opened entry = way.open_path(AT_FDCWD, path, flags, mode);
  entry.followed = way.met_links();
  return entry;
}

Opened open_target(int folder, int link, int flags) {
  return Way().follow(folder, "", link, flags, 0);
}

Opened open_again(int pinned, int flags) {
  const std::string held = "/proc/self/fd/" + std::to_string(pinned);
  return opened(open(held.c_str(), flags | O_CLOEXEC));
}
