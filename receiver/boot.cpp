#include "receiver/boot.h"

#include <fstream>

namespace {

constexpr char kBootId[] = "/proc/sys/kernel/random/boot_id";

std::string first_line(const std::string& path) {
  std::ifstream file(path);
  std::string line;
  std::getline(file, line);
  return line;
}

}  // namespace

bool is_same_boot(const std::string& path) {
  const std::string now = first_line(kBootId);
  return !now.empty() && first_line(path) == now;
}

void note_boot(const std::string& path) { std::ofstream(path) << first_line(kBootId) << "\n"; }
