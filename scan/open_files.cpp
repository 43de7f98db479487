#include "scan/open_files.h"

#include <array>
#include <string_view>

#include "softlib/file_system.h"
#include "softlib/owners.h"

namespace {

constexpr std::size_t kLinkBuffer = 4096;  // bytes; one is left for a terminator

bool begins_with_digit(const char* name) { return name[0] >= '0' && name[0] <= '9'; }

}  // namespace

int check_open_file(const std::string& path) {
  const Dir processes(opendir("/proc"));
  if (!processes) return -1;
  while (const dirent* entry = readdir(processes.get())) {
    if (!begins_with_digit(entry->d_name)) continue;
    const std::string process = std::string("/proc/") + entry->d_name;
    if (is_dir("", process) && check_proc_dir(process, path) != 0) return 1;
  }
  return 0;
}

int check_proc_dir(const std::string& process, const std::string& path) {
  const std::string fd_dir = process + "/fd";
  const Dir descriptors(opendir(fd_dir.c_str()));
  if (!descriptors) return 0;
  while (const dirent* entry = readdir(descriptors.get())) {
    if (is_dot_entry(entry->d_name)) continue;
    std::array<char, kLinkBuffer> target;
    const ssize_t len =
        readlink((fd_dir + "/" + entry->d_name).c_str(), target.data(), target.size() - 1);
    if (len < 1 || target[0] != '/') continue;  // gone, or a pipe, a socket ...
    if (std::string_view(target.data(), static_cast<std::size_t>(len)) == path) return 1;
  }
  return 0;
}
