#include "receiver/deliver/folders.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

namespace {

constexpr int kFolder = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

}  // namespace

Fd open_beneath(int folder, const std::string& path) {
  open_how how{};
  how.flags = kFolder;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS;
  return Fd(static_cast<int>(syscall(SYS_openat2, folder, path.c_str(), &how, sizeof how)));
}

Fd enter(int folder, const char* name, mode_t mode, bool sync) {
  Fd entered(openat(folder, name, kFolder | O_NOFOLLOW));
  if (entered || errno != ENOENT) return entered;
  if (mkdirat(folder, name, mode) != 0 && errno != EEXIST) return entered;
  if (sync && !sync_folder(folder)) return entered;
  return Fd(openat(folder, name, kFolder | O_NOFOLLOW));
}

bool sync_folder(int folder) { return fsync(folder) == 0 || errno == EINVAL; }
