// A configuration file.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>

#include "frame/config_file.h"
#include "state/settings.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  settings = Settings{};
  const int file = memfd_create("config", MFD_CLOEXEC);
  settings.config_name = "/proc/self/fd/" + std::to_string(file);
  const bool read = write(file, data, size) == static_cast<ssize_t>(size) && LoadConfig(true);
  close(file);
  if (!read) std::abort();
  return 0;
}
