#include "softlib/clock.h"

#include <ctime>

namespace {

std::uint64_t read_ms(clockid_t clock) {
  std::timespec now{};
  clock_gettime(clock, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1000 +
         static_cast<std::uint64_t>(now.tv_nsec) / 1'000'000;
}

}  // namespace

std::uint64_t GetTickCount() { return read_ms(CLOCK_REALTIME); }

std::uint64_t steady_ms() { return read_ms(CLOCK_MONOTONIC); }
