#include "softlib/clock.h"

#include <ctime>

std::uint64_t GetTickCount() {
  std::timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1000 +
         static_cast<std::uint64_t>(now.tv_nsec) / 1'000'000;
}
