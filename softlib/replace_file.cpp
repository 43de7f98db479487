#include "softlib/replace_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "ground/write_all.h"
#include "softlib/links.h"

namespace {

bool is_something_else(int folder, const std::string& name) {
  struct stat st {};
  return fstatat(folder, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && !S_ISREG(st.st_mode);
}

}  // namespace

std::string replace_file(const std::string& path, const std::string& text) {
  const std::size_t name_at = path.rfind('/') + 1;  // 0 without a slash
  const std::string name = path.substr(name_at);
  const Opened opened =
      open_path(name_at == 0 ? "." : path.substr(0, name_at), O_PATH | O_DIRECTORY);
  if (!opened) return std::strerror(opened.error);
  const int folder = opened.fd.get();
  if (name.empty() || is_something_else(folder, name)) return "not a regular file";
  const std::string beside = name + ".tmp";
  (void)unlinkat(folder, beside.c_str(), 0);  // left by a run that was killed, or by a stranger
  const Fd file(openat(folder, beside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
  if (file && write_all(file.get(), text) &&
      renameat(folder, beside.c_str(), folder, name.c_str()) == 0) {
    return "";
  }
  std::string why = std::strerror(errno);
  if (file) (void)unlinkat(folder, beside.c_str(), 0);
  return why;
}
