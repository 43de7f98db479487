#include "softlib/log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>

#include "ground/write_all.h"
#include "softlib/file_system.h"
#include "softlib/links.h"
#include "softlib/path.h"
#include "softlib/system_log.h"

namespace {

/// Opens the log for appending. The user may want a pipe or a device as the log, and we
/// wait for it; but we must not wait for a pipe that a stranger put there.
Opened open_log(const std::string& file) {
  struct stat st {};
  const Opened there = open_path(file, O_PATH);
  const bool is_pipe = there && fstat(there.fd.get(), &st) == 0 && S_ISFIFO(st.st_mode);
  const bool is_strangers = is_pipe && st.st_uid != 0 && st.st_uid != geteuid();
  const int waiting = is_strangers ? O_NONBLOCK : 0;
  return open_path(file, O_WRONLY | O_APPEND | O_CREAT | O_NOCTTY | waiting, 0666);
}

}  // namespace

std::string str_time(bool full) {
  const std::time_t now = std::time(nullptr);
  const std::tm* local = std::localtime(&now);  // follows a new time zone, unlike localtime_r()
  if (local == nullptr) return "";
  char text[40];
  const std::size_t len = full ? std::strftime(text, sizeof text, "%d/%m/%Y %X", local)
                               : std::strftime(text, sizeof text, "%X", local);
  return {text, len};
}

void write_log(const std::string& file, const std::string& text, bool stamp) {
  static Warning warning;
  const std::string entry = (stamp ? str_time(true) + " > " : "") + text + "\n";
  const Opened log = open_log(file);
  warning.note(log && write_all(log.fd.get(), entry), "can't write the log " + file);
}

bool LogDir(const std::string& file) {
  std::string name;
  std::string dir;
  prg_get_name_dir(file, name, dir);
  return dir.empty() || is_dir("", dir) || mkdir(dir.c_str(), 0777) == 0;
}
