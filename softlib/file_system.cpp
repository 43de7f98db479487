#include "softlib/file_system.h"

#include <sys/stat.h>

#include <algorithm>
#include <climits>
#include <sstream>
#include <tuple>

#include "softlib/owners.h"
#include "softlib/path.h"

namespace {

FileStamp stamp_of(const struct stat& st) {
  return {st.st_dev, st.st_ino, st.st_size, st.st_mtim.tv_sec, st.st_mtim.tv_nsec};
}

}  // namespace

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
  return std::tie(a.device, a.inode, a.size, a.modified_s, a.modified_ns) ==
         std::tie(b.device, b.inode, b.size, b.modified_s, b.modified_ns);
}

std::optional<FileStamp> file_stamp(const std::string& path) {
  struct stat st {};
  if (stat(path.c_str(), &st) != 0) return std::nullopt;
  return stamp_of(st);
}

std::optional<FileStamp> file_stamp(int fd) {
  struct stat st {};
  if (fstat(fd, &st) != 0) return std::nullopt;
  return stamp_of(st);
}

bool changed_since(const FileStamp& before, const std::string& path) {
  const std::optional<FileStamp> now = file_stamp(path);
  return now && !(*now == before);
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
  std::string made = path.compare(0, 1, "/") == 0 ? "/" : "";
  std::istringstream components(path);
  for (std::string component; std::getline(components, component, '/');) {
    if (component.empty()) continue;
    made += component + "/";
    if (!is_dir("", made) && mkdir(made.c_str(), 0777) != 0) return false;
  }
  return true;
}
