#include "receiver/boot.h"

#include <fstream>

namespace {

std::string first_line(const std::string& path) {
  std::ifstream file(path);
  std::string line;
  std::getline(file, line);
  return line;
}

}  // namespace

bool is_same_boot(const std::string& path) {
  const std::string now = first_line("/proc/sys/kernel/random/boot_id");
  const bool same = !now.empty() && first_line(path) == now;
  std::ofstream(path) << now << "\n";
  return same;
}
