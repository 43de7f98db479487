#include "softlib/log.h"

#include <sys/stat.h>

#include <ctime>
#include <fstream>

#include "softlib/file_system.h"
#include "softlib/path.h"

std::string str_time(bool full) {
  const std::time_t now = std::time(nullptr);
  const std::tm* local = std::localtime(&now);  // unlike localtime_r() follows a new time zone
  if (local == nullptr) return "";
  char text[40];
  const std::size_t len = full ? std::strftime(text, sizeof text, "%d/%m/%Y %X", local)
                               : std::strftime(text, sizeof text, "%X", local);
  return {text, len};
}

void write_log(const std::string& file, const std::string& text, bool stamp) {
  std::ofstream log(file, std::ios::app);
  if (!log) return;
  if (stamp) log << str_time(true) << " > ";
  log << text << std::endl;
}

bool LogDir(const std::string& file) {
  std::string name;
  std::string dir;
  prg_get_name_dir(file, name, dir);
  return dir.empty() || is_dir("", dir) || mkdir(dir.c_str(), 0777) == 0;
}
