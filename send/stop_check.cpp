#include "send/stop_check.h"

#include <cstdint>

#include "proc/proc.h"
#include "softlib/clock.h"

namespace {

constexpr std::uint64_t kPollIntervalMs = 100;

std::uint64_t last_time_check = 0;

}  // namespace

bool check2break() {
  const std::uint64_t now = steady_ms();
  if (now <= last_time_check) return false;
  last_time_check = now + kPollIntervalMs;
  return pplock != nullptr && pplock->terminated();
}
