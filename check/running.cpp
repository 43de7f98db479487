#include "check/running.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>

#include "proc/lock_file.h"
#include "proc/proc.h"
#include "softlib/file_system.h"
#include "softlib/path.h"
#include "state/settings.h"

namespace {

constexpr char kAbout[] = "lock";

std::string link_text(const std::string& path) {
  std::array<char, PATH_MAX> text{};
  const ssize_t len = readlink(path.c_str(), text.data(), text.size());
  return {text.data(), len > 0 ? static_cast<std::size_t>(len) : 0};
}

/// What /proc tells about a process; fields that it does not tell are empty.
struct Process {
  explicit Process(int id) : pid(id) {
    const std::string proc = "/proc/" + std::to_string(pid);
    std::ifstream file(proc + "/cmdline", std::ios::binary);
    std::array<char, 4096> part{};
    do {  // fails, and must not throw, when the process ends meanwhile
      file.read(part.data(), part.size());
      command.append(part.data(), static_cast<std::size_t>(file.gcount()));
    } while (file);
    name = get_file_name_noext(command.c_str());
    std::replace(command.begin(), command.end(), '\0', ' ');
    if (!command.empty()) command.pop_back();
    folder = link_text(proc + "/cwd");
    program = get_file_name(link_text(proc + "/exe"));
  }

  std::string told() const {
    return "process " + std::to_string(pid) + " (" + command + ")" +
           (folder.empty() ? "" : " in " + folder);
  }

  int pid;
  std::string command;
  std::string name;     ///< under which it takes its lock
  std::string folder;   ///< its working folder
  std::string program;  ///< name of the program's file
};

void tell_of_holder(const Process& holder, const std::string& lock, Findings& findings) {
  const bool is_ours = holder.name.empty() || holder.name == settings.prg_name;
  if (!is_ours) {
    findings.stop(kAbout, "the lock " + lock + " names " + holder.told() +
                              ", which is no copy of " + settings.prg_name +
                              ": delete the lock if no copy runs");
  } else if (settings.mode == kStop) {
    findings.note(kAbout, "-m:3 would stop " + holder.told());
  } else if (settings.mode == kTrashJournal) {
    findings.note(kAbout, "-m:4 would pause " + holder.told());
  } else {
    findings.stop(kAbout, "another copy is running: " + holder.told() + " holds the lock " + lock);
  }
}

/// Returns the process that the lock file names, or 0 if there is no such process.
int holder_of(const std::string& lock, Findings& findings) {
  const Fd file = find_lock_file(lock);
  if (!file) {
    findings.stop(kAbout, "the lock file " + lock +
                              " can't be used: it can't be opened for "
                              "writing, is no regular file, or another user put it there");
    return 0;
  }
  const std::optional<shared_data> record = read_record(file.get());
  if (!record || record->pid == 0 || !Proc::is_still_running(record->pid)) return 0;
  return record->pid;
}

void check_new_lock(const std::string& lock, Findings& findings) {
  const std::string folder = lock.substr(0, lock.rfind('/'));
  if (faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) == 0) return;
  findings.stop(kAbout,
                "the lock file " + lock + " can't be created: " + std::strerror(errno) +
                    (settings.run_dir == "/var/run" ? "; --run-dir=DIR takes another folder" : ""));
}

/// Copies with different names have different locks, and can read the same configuration
/// file unnoticed.
void check_other_copies(const std::string& config, int holder, Findings& findings) {
  if (config.empty() || config[0] == '/') return;
  std::error_code error;
  const std::filesystem::directory_iterator processes("/proc", error);
  for (const auto& entry : processes) {
    const std::string id = entry.path().filename();
    if (id.find_first_not_of("0123456789") != std::string::npos) continue;
    const Process process(std::stoi(id));
    if (process.program != "tarnwick" || process.pid == holder || process.folder != get_cur_dir())
      continue;
    findings.warn("configuration", "the configuration file " + config + " is also that of " +
                                       process.told() + ", which runs under another name");
  }
}

}  // namespace

void check_running(const std::string& config, Findings& findings) {
  const std::string lock = Proc::lock_path(settings.prg_name, settings.run_dir);
  int holder = 0;
  struct stat st {};
  if (lock.empty()) {
    findings.stop(kAbout, "--run-dir= names no folder for the lock file");
  } else if (lstat(lock.c_str(), &st) == 0) {
    holder = holder_of(lock, findings);
  } else {
    check_new_lock(lock, findings);
  }
  if (holder != 0) tell_of_holder(Process(holder), lock, findings);
  if (holder == 0 && settings.mode == kStop)
    findings.warn(kAbout, "-m:3 has nothing to stop: nobody holds the lock " + lock);
  check_other_copies(config, holder, findings);
}
