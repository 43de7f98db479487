#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/timex.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>

#include "receiver/base/names.h"
#include "receiver/base/own_files.h"
#include "receiver/check/check.h"
#include "receiver/commands.h"

namespace {

constexpr char kAbout[] = "place";
constexpr std::uint64_t kLittleRoom = 64 << 20;  // bytes
constexpr std::uint64_t kFewInodes = 1000;

bool may_write(const std::string& folder) {
  return faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) == 0;
}

bool exists(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0;
}

/// The lowest folder on the way to `path` that is there.
std::string what_exists(std::string path) {
  while (!exists(path) && path != "." && path != "/") path = split_path(path).folder;
  return path;
}

/// A folder that is made where it is missing. True if it can be used.
bool check_folder(const std::string& path, Findings& findings) {
  const std::string there = what_exists(path);
  std::string why;
  const Fd folder = open_folder(there, false, why);
  if (folder && !may_write(there)) why = std::strerror(errno);
  if (!why.empty()) findings.stop(kAbout, "the folder " + path + " can't be used: " + why);
  return why.empty();
}

/// A file that is written into a folder that must be there.
void check_file(const std::string& what, const std::string& path, Findings& findings) {
  if (path.empty()) return;
  const std::string folder = split_path(path).folder;
  struct stat st {};
  const bool is_folder = stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
  if (!is_folder && exists(folder) && may_write(folder)) return;
  findings.stop(kAbout, what + " " + path + " can't be written: " +
                            (is_folder ? "it is a folder" : std::strerror(errno)));
}

void check_room(const Options& options, const std::string& path, Findings& findings) {
  struct statvfs disk {};
  if (statvfs(what_exists(path).c_str(), &disk) != 0) return;
  const std::uint64_t free = std::uint64_t{disk.f_bavail} * disk.f_frsize;
  const std::uint64_t reserve = options.store.reserve;
  const std::uint64_t room = free > reserve ? free - reserve : 0;
  if (room < kLittleRoom)
    findings.warn(kAbout, path + " has room for " + std::to_string(room) + " bytes" +
                              (reserve > 0 ? " beside the reserve" : ""));
  if (disk.f_files > 0 && disk.f_favail < kFewInodes)
    findings.warn(kAbout, path + " is on a file system with room for " +
                              std::to_string(disk.f_favail) + " more files");
  if (options.max_file_size > room)
    findings.warn(kAbout, path + " has no room for a file of --max-file-size");
}

/// Whether locks, the ledger and renaming can be relied on.
void check_file_system(const std::string& path, Findings& findings) {
  constexpr long kNetworks[] = {NFS_SUPER_MAGIC,  SMB_SUPER_MAGIC, CIFS_SUPER_MAGIC,
                                SMB2_SUPER_MAGIC, V9FS_MAGIC,      FUSE_SUPER_MAGIC};
  struct statfs fs {};
  if (statfs(what_exists(path).c_str(), &fs) != 0) return;
  if (std::find(std::begin(kNetworks), std::end(kNetworks), fs.f_type) != std::end(kNetworks))
    findings.warn(kAbout, path +
                              " is on a file system of a network or of a program: the ledger "
                              "and the locks need one of the kernel's own (--ledger)");
  if (fs.f_type == TMPFS_MAGIC)
    findings.note(kAbout, path + " is in memory: what arrived is gone with the next start");
}

/// The process that holds the lock of the hidden folder; 0 if none does. Asking the lock
/// itself could turn away a receiver that is just starting.
int lock_holder(const struct stat& hidden) {
  std::ifstream locks("/proc/locks");  // proc(5)
  const std::string inode = ":" + std::to_string(hidden.st_ino);
  for (std::string line; std::getline(locks, line);) {
    std::istringstream words(line);
    std::string number, kind, mode, access, pid, file;
    words >> number >> kind >> mode >> access >> pid >> file;
    const bool is_ours = file.size() > inode.size() &&
                         file.compare(file.size() - inode.size(), inode.size(), inode) == 0;
    if (kind == "FLOCK" && is_ours) return static_cast<int>(std::strtol(pid.c_str(), nullptr, 10));
  }
  return 0;
}

void check_hidden(const std::string& hidden, Findings& findings) {
  struct stat st {};
  if (stat(hidden.c_str(), &st) != 0) return;  // it is made
  std::string why;
  const Fd folder = open_folder(hidden, false, why);
  if (folder) why = why_not_private(folder.get());
  if (!why.empty()) findings.stop(kAbout, "the folder " + hidden + " can't be used: " + why);
  struct stat above {};
  if (stat(split_path(hidden).folder.c_str(), &above) == 0 && above.st_dev != st.st_dev)
    findings.warn(kAbout, hidden +
                              " is on another file system than the folder around it: every "
                              "file is copied once more");
  if (const int holder = lock_holder(st); holder != 0)
    findings.stop(kAbout, "another receiver, process " + std::to_string(holder) +
                              ", uses the folder " + split_path(hidden).folder);
}

void check_keys(const Options& options, Findings& findings) {
  for (const std::string& path : options.seals.trust) {
    if (access(path.c_str(), R_OK) != 0)
      findings.stop(kAbout, "the key " + path + " can't be read: " + std::strerror(errno));
  }
}

void check_clock(const Options& options, const std::string& ledger, Findings& findings) {
  constexpr std::time_t kSurelyPast = 1'735'689'600;  // 2025-01-01
  const std::time_t now = std::time(nullptr);
  struct stat st {};
  if (now < kSurelyPast) findings.warn("clock", "the clock stands before 2025");
  if (stat(ledger.c_str(), &st) == 0 && st.st_mtime > now + 60)
    findings.warn("clock", "the clock stands before the last change of " + ledger);
  timex state{};  // asks only
  if (options.seals.max_age > 0 && adjtimex(&state) == TIME_ERROR)
    findings.warn("clock",
                  "nothing keeps the clock right (adjtimex(2)), and --max-age relies on "
                  "it");
}

}  // namespace

void check_place(const Options& options, Findings& findings) {
  const std::string hidden = options.store.into + "/" + kHiddenFolder;
  const std::string ledger = options.ledger.empty() ? hidden + "/" + kLedgerName : options.ledger;
  if (check_folder(options.store.into, findings)) {
    check_room(options, options.store.into, findings);
    check_file_system(hidden, findings);
    check_hidden(hidden, findings);
  }
  for (const std::string& folder : {options.store.journals, options.store.incomplete}) {
    if (!folder.empty()) (void)check_folder(folder, findings);  // it has told
  }
  check_file("the ledger", options.ledger, findings);
  check_file("the log", options.log, findings);
  check_file("the metrics", options.metrics, findings);
  check_keys(options, findings);
  check_clock(options, ledger, findings);
}
