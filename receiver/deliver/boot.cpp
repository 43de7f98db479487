#include "receiver/deliver/boot.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <string>

#include "receiver/base/own_files.h"

namespace {

constexpr char kFile[] = "boot_id";

/// Up to the line's end; an id has 36 characters.
std::string first_line(const Fd& file) {
  std::array<char, 64> bytes{};
  const ssize_t size = file ? read(file.get(), bytes.data(), bytes.size()) : 0;
  const std::string text(bytes.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
  return text.substr(0, text.find('\n'));
}

std::string present_boot() {
  return first_line(Fd(open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC)));
}

}  // namespace

bool is_same_boot(int folder) {
  const std::string now = present_boot();
  return !now.empty() && first_line(open_own(folder, kFile, O_RDONLY)) == now;
}

void note_boot(int folder) {
  (void)replace_file(folder, kFile, "boot_id.new", 0600, present_boot() + "\n");
}
