#include "send/pacing.h"

#include <ctime>
#include <limits>

#include "state/settings.h"

std::uint64_t delay_target = 0;

std::uint32_t line_bits(std::uint32_t udata_size) {
  constexpr std::uint32_t kIpUdpHeaders = 28;    // RFC 791, RFC 768
  constexpr std::uint32_t kOneFrame = 1471;      // largest payload counted as a single frame
  constexpr std::uint32_t kFrameOverhead = 54;   // bytes of that frame beside the packet
  constexpr std::uint32_t kFragmentData = 1480;  // payload of a full fragment
  constexpr std::uint32_t kFragmentFrame = 1526;
  constexpr std::uint32_t kLastOverhead = 46;

  const std::uint32_t packet = udata_size + kIpUdpHeaders;
  std::uint32_t bytes = packet + kFrameOverhead;
  if (packet > kOneFrame) {
    const std::uint32_t rest = packet - (kOneFrame + 1);
    const std::uint32_t full = rest / kFragmentData;
    bytes = rest % kFragmentData + (full + 1) * kFragmentFrame + kLastOverhead;
  }
  return bytes * kBytes_to_Bits;
}

double packet_interval(std::uint32_t udata_size, double speed) {
  return static_cast<double>(line_bits(udata_size)) / speed / 1024 / 1024;
}

std::uint64_t to_delay(double interval) {
  constexpr auto kMost = std::numeric_limits<std::uint64_t>::max();
  const double ns = interval * kSecs_to_nsecs;
  if (!(ns > 0)) return 0;
  return ns < static_cast<double>(kMost) ? static_cast<std::uint64_t>(ns) : kMost;
}

bool is_paced() { return settings.speed > 0.00001; }

std::uint64_t GetNanoTime() {
  std::timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<std::uint64_t>(static_cast<double>(now.tv_sec) * kSecs_to_nsecs +
                                    static_cast<double>(now.tv_nsec));
}

bool Pacer::may_send(std::uint64_t now) {
  const bool may = is_due(now);
  if (may || due_ - now > interval_) due_ = now + interval_;
  return may;
}

void Pacer::wait() {
  while (!may_send(GetNanoTime())) {
  }
}
