#include "check/own_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "frame/config_file.h"
#include "proc/proc.h"
#include "scan/scan_list.h"
#include "softlib/file_system.h"
#include "softlib/links.h"
#include "softlib/path.h"
#include "state/settings.h"

namespace {

constexpr unsigned long long kLittleRoom = 16ULL << 20;  // bytes

std::string folder_of(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

/// The lowest folder on the way to `path` that exists; `path` itself if it does.
std::string what_exists(std::string path) {
  while (!path.empty() && path.back() == '/' && path.size() > 1) path.pop_back();
  while (!file_exists(path.empty() ? "." : path) && path != "/" && path != ".")
    path = folder_of(path);
  return path.empty() ? "." : path;
}

bool may_write(const std::string& path) {
  return faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0;
}

void check_room(const std::string& what, const std::string& path, Findings& findings) {
  struct statvfs fs {};
  if (statvfs(what_exists(path).c_str(), &fs) != 0) return;
  const unsigned long long room = 1ULL * fs.f_bavail * fs.f_frsize;
  if (room < kLittleRoom)
    findings.warn("room", what + " has " + std::to_string(room) + " bytes left on its disk");
  if (fs.f_files > 0 && fs.f_favail == 0)
    findings.warn("room", what + " has no inode left on its file system");
}

void check_first_config(Findings& findings) {
  const std::string& path = settings.config_name;
  findings.warn("configuration", "there is no configuration file: the first run writes " + path +
                                     ", and from the second one on it sets -s:95 and -t:61440 "
                                     "where options do not");
  const std::string folder = folder_of(path);
  const bool writable = file_exists(path) ? may_write(path) : may_write(folder);
  if (!writable)
    findings.stop("configuration",
                  "the configuration file " + path + " can't be written: " + std::strerror(errno));
}

dev_t device_of(const std::string& path) {
  struct stat st {};
  (void)stat(path.c_str(), &st);  // it exists
  return st.st_dev;
}

/// True if the folder exists or LogDir(), which makes only one level, could make it.
bool log_folder_can_be_had(const std::string& folder) {
  return is_dir("", folder) ||
         (!file_exists(folder) && file_exists(folder_of(folder)) && may_write(folder_of(folder)));
}

}  // namespace

void check_config(const std::string& read, Findings& findings) {
  if (read.empty()) return check_first_config(findings);
  struct stat st {};
  if (stat(read.c_str(), &st) != 0) return;
  const std::string what = "the configuration file " + read;
  if (st.st_uid != 0 && st.st_uid != geteuid())
    findings.warn("configuration",
                  what + " belongs to another user (uid " + std::to_string(st.st_uid) + ")");
  if ((st.st_mode & S_IWOTH) != 0)
    findings.warn("configuration", what + " can be changed by everybody");
}

void check_log(Findings& findings) {
  if (settings.logs == 0) return;
  const std::string& log = settings.logs_name;
  std::string name;
  std::string folder;
  prg_get_name_dir(log, name, folder);
  if (settings.logs > 0 && !folder.empty() && !log_folder_can_be_had(folder)) {
    findings.stop("log", "the folder of the log " + log + " can't be made");
    return;
  }
  const bool is_there = file_exists(log);
  const bool writable = is_there ? static_cast<bool>(open_path(log, O_PATH)) && may_write(log)
                                 : may_write(what_exists(log));
  if (!writable || is_dir("", log)) findings.warn("log", "the log " + log + " can't be written");
  check_room("the log " + log, log, findings);
}

void check_metrics(Findings& findings) {
  const std::string& path = settings.metrics;
  const std::string folder = folder_of(path);
  if (path.empty() || (is_dir("", folder) && may_write(folder) && !is_dir("", path))) return;
  findings.warn("metrics", "the metrics " + path + " can't be written");
}

void check_trash(const std::vector<scan_folder>& folders, Findings& findings) {
  if (settings.trash_active == 0) return;
  const std::string& trash = settings.trash_path;
  const std::string what = "the trash folder " + trash;
  if (trash.empty())
    findings.warn("trash", "-y: without a value makes the root folder, /, the trash");
  const std::string exists = what_exists(trash.empty() ? "/" : trash);
  const Opened opened = open_path(exists + "/", O_PATH | O_DIRECTORY);
  if (!opened || !may_write(exists))
    findings.warn("trash", what + " can't be used: " +
                               (opened ? std::strerror(errno) : std::strerror(opened.error)) +
                               ": sent files stay, and are sent again and again");
  for (const scan_folder& folder : folders) {
    if (!file_exists(folder.abs_path)) continue;
    if (device_of(folder.abs_path) != device_of(exists))
      findings.warn("trash", what + " is on another file system than " + folder.abs_path +
                                 ": sent files can't be moved there, and are sent again and again");
  }
  check_room(what, exists, findings);
}

std::vector<OwnPath> own_paths(const std::string& config) {
  std::vector<OwnPath> own;
  own.push_back({"the configuration file", config.empty() ? settings.config_name : config});
  if (settings.logs != 0) own.push_back({"the log", settings.logs_name});
  if (settings.trash_active != 0) own.push_back({"the trash folder", settings.trash_path + "/"});
  if (!settings.scan_list_name.empty())
    own.push_back({"the scan list", make_absolute(settings.scan_list_name)});
  if (!settings.metrics.empty()) own.push_back({"the metrics", settings.metrics});
  if (!settings.sign.empty()) own.push_back({"the key", settings.sign});
  own.push_back({"the lock file", Proc::lock_path(settings.prg_name, settings.run_dir)});
  return own;
}
