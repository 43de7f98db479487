#include "receiver/base/own_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <utility>

#include "ground/write_all.h"

namespace {

constexpr int kOnTheWay = O_PATH | O_NOFOLLOW | O_CLOEXEC;
constexpr int kMostLinks = 40;  // as in the kernel: path_resolution(7)

/// Walks a path; each link is read through its own descriptor, so exchanging it after
/// the look at its owner changes nothing.
class Walk {
 public:
  explicit Walk(std::string& error) : error_(error) {}

  /// The folder at `path`, seen from `from`; with `create` made when missing.
  Fd to(int from, const std::string& path, bool create) {
    Fd at(openat(from, path[0] == '/' ? "/" : ".", kOnTheWay | O_DIRECTORY));
    std::istringstream components(path);
    for (std::string name; at && std::getline(components, name, '/');) {
      if (!name.empty()) at = enter(at.get(), name, create);
    }
    if (!at && error_.empty()) error_ = std::strerror(errno);
    return at;
  }

 private:
  Fd enter(int folder, const std::string& name, bool create) {
    Fd entered(openat(folder, name.c_str(), kOnTheWay));
    if (!entered && errno == ENOENT && create &&
        (mkdirat(folder, name.c_str(), 0777) == 0 || errno == EEXIST)) {
      entered = Fd(openat(folder, name.c_str(), kOnTheWay));
    }
    struct stat info {};
    if (!entered || fstat(entered.get(), &info) != 0) return Fd();
    return S_ISLNK(info.st_mode) ? follow(folder, entered.get(), info.st_uid) : std::move(entered);
  }

  Fd follow(int folder, int link, uid_t owner) {
    std::array<char, PATH_MAX> text{};
    if (++links_ > kMostLinks) {
      errno = ELOOP;
      return Fd();
    }
    // one that fills the array is cut and leads nowhere
    if (readlinkat(link, "", text.data(), text.size() - 1) <= 0) return Fd();
    Fd reached = to(folder, text.data(), false);
    struct stat info {};
    if (!reached || fstat(reached.get(), &info) != 0) return Fd();
    if (owner == 0 || owner == geteuid() || owner == info.st_uid) return reached;
    error_ = "a link of another user (uid " + std::to_string(owner) + ") leads there";
    return Fd();
  }

  std::string& error_;
  int links_ = 0;
};

}  // namespace

Fd open_folder(const std::string& path, bool create, std::string& error) {
  error.clear();
  const Fd found = path.empty() ? Fd() : Walk(error).to(AT_FDCWD, path, create);
  Fd folder(found ? openat(found.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1);
  if (!folder && error.empty()) error = std::strerror(path.empty() ? ENOENT : errno);
  return folder;
}

std::string why_not_private(int folder) {
  struct stat info {};
  if (fstat(folder, &info) != 0) return std::strerror(errno);
  if (info.st_uid != geteuid()) {
    return "it belongs to another user (uid " + std::to_string(info.st_uid) + ")";
  }
  const bool shared = (info.st_mode & (S_IWGRP | S_IWOTH)) != 0;
  return shared ? "others may write to it (chmod go-w makes it ours)" : "";
}

std::string why_not_ours(int folder, const std::string& name) {
  struct stat info {};
  if (fstatat(folder, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
    return errno == ENOENT ? "" : std::strerror(errno);
  }
  if (!S_ISREG(info.st_mode)) return name + " is no regular file";
  if (info.st_uid != geteuid()) {
    return name + " belongs to another user (uid " + std::to_string(info.st_uid) + ")";
  }
  return info.st_nlink > 1 ? name + " is a hard link to another file" : "";
}

Fd open_own(int folder, const std::string& name, int flags) {
  // O_NONBLOCK: a pipe is not waited for; it means nothing to regular files
  Fd fd(openat(folder, name.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat info {};
  if (!fd || fstat(fd.get(), &info) != 0 || S_ISREG(info.st_mode)) return fd;
  fd = Fd();
  errno = EPERM;
  return fd;
}

SplitPath split_path(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return {".", path};
  return {slash == 0 ? "/" : path.substr(0, slash), path.substr(slash + 1)};
}

Temporary::Temporary(int folder, std::string name, mode_t mode)
    : folder_(folder), name_(std::move(name)) {
  unlinkat(folder_, this->name(), 0);  // of a run that was killed
  fd_ = Fd(openat(folder_, this->name(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
}

Temporary::~Temporary() {
  if (!fd_) return;  // what has the name is not ours
  const int error = errno;
  unlinkat(folder_, name(), 0);
  errno = error;
}

bool replace_file(int folder, const std::string& name, const std::string& temporary, mode_t mode,
                  const std::string& text) {
  const Temporary file(folder, temporary, mode);
  return file.fd() >= 0 && write_all(file.fd(), text) &&
         renameat(folder, file.name(), folder, name.c_str()) == 0;
}

std::string write_text(int folder, const std::string& path, const std::string& text) {
  const std::string name = split_path(path).name;
  struct stat info {};
  const bool exists = fstatat(folder, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0;
  if (exists && !S_ISREG(info.st_mode)) return path + " is no regular file";
  if (replace_file(folder, name, name + ".tmp", 0666, text)) return "";
  return path + ": " + std::strerror(errno);
}
