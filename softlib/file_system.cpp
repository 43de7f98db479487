#include "softlib/file_system.h"

#include <fcntl.h>

#include <algorithm>
#include <climits>
#include <sstream>
#include <tuple>
#include <utility>

#include "ground/owners.h"
#include "softlib/links.h"
#include "softlib/path.h"

bool file_exists(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0;
}

bool file_is_regular(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

std::int64_t get_file_size(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 ? st.st_size : 0;
}

std::time_t get_file_mtime(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 ? st.st_mtime : 0;
}

bool operator==(const FileStamp& a, const FileStamp& b) {
  return std::tie(a.device, a.inode, a.size, a.modified_s, a.modified_ns, a.changed_s,
                  a.changed_ns) == std::tie(b.device, b.inode, b.size, b.modified_s, b.modified_ns,
                                            b.changed_s, b.changed_ns);
}

FileStamp file_stamp(const struct stat& st) {
  return {st.st_dev,          st.st_ino,         st.st_size,        st.st_mtim.tv_sec,
          st.st_mtim.tv_nsec, st.st_ctim.tv_sec, st.st_ctim.tv_nsec};
}

std::optional<FileStamp> file_stamp(int fd) {
  struct stat st {};
  if (fstat(fd, &st) != 0) return std::nullopt;
  return file_stamp(st);
}

std::string get_cur_dir() {
  char cwd[PATH_MAX];
  return getcwd(cwd, sizeof cwd) != nullptr ? cwd : "";
}

bool is_dir(const std::string& dir, const std::string& name) {
  return Dir(opendir(join_path(dir, name).c_str())) != nullptr;
}

bool dir_is_empty(const std::string& dir, const std::string& name) {
  const Dir stream(opendir(join_path(dir, name).c_str()));
  if (!stream) return false;
  while (const dirent* entry = readdir(stream.get())) {
    if (!is_dot_entry(entry->d_name)) return false;
  }
  return true;
}

bool is_dot_entry(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

bool MakeDir(std::string& path) {
  std::replace(path.begin(), path.end(), '\\', '/');
  if (is_dir("", path)) return true;
  Fd at(open(path.compare(0, 1, "/") == 0 ? "/" : ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
  std::istringstream components(path);
  for (std::string component; at && std::getline(components, component, '/');) {
    if (component.empty()) continue;
    const auto open_it = [&] {
      return open_below(at.get(), component.c_str(), O_RDONLY | O_DIRECTORY);
    };
    Opened next = open_it();
    if (!next && mkdirat(at.get(), component.c_str(), 0777) == 0) next = open_it();
    at = std::move(next.fd);
  }
  return static_cast<bool>(at);
}
