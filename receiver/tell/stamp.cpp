#include "receiver/tell/stamp.h"

#include <sys/stat.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>

namespace {

std::string formatted(const std::tm& parts, const char* format) {
  std::array<char, 40> text{};
  (void)std::strftime(text.data(), text.size(), format, &parts);
  return text.data();
}

}  // namespace

std::string rfc3339_utc(double real) {
  const auto milliseconds = static_cast<long long>(std::floor(real * 1000));
  const auto seconds = static_cast<std::time_t>(milliseconds / 1000);
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  std::array<char, 8> fraction{};
  (void)std::snprintf(fraction.data(), fraction.size(), ".%03dZ",
                      static_cast<int>(milliseconds % 1000));
  return formatted(parts, "%Y-%m-%dT%H:%M:%S") + fraction.data();
}

std::string rfc3339_local(double real) {
  const auto seconds = static_cast<std::time_t>(std::floor(real));
  std::tm parts{};
  localtime_r(&seconds, &parts);
  std::string text = formatted(parts, "%Y-%m-%dT%H:%M:%S%z");
  return text.insert(text.size() - 2, ":");  // of the offset
}

bool is_journal(int fd, const char* journal_stream) {
  struct stat info {};
  return journal_stream != nullptr && fstat(fd, &info) == 0 &&
         journal_stream == std::to_string(info.st_dev) + ":" + std::to_string(info.st_ino);
}

const char* level_prefix(const std::string& name) {
  const bool is_bad = name == "warning" || name == "incomplete" || name == "refused";
  return is_bad ? "<4>" : "<6>";  // warning, info
}
