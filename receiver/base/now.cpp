#include "receiver/base/now.h"

#include <ctime>

namespace {

double seconds_of(clockid_t clock) {
  std::timespec now{};
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

}  // namespace

Now Now::read() { return {seconds_of(CLOCK_MONOTONIC), seconds_of(CLOCK_REALTIME)}; }
