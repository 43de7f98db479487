// send/pacing.h: spaces data packets so that the line carries `speed`.
//
//   Pacer pacer(delay_target, GetNanoTime());
//   before each packet, if is_paced():  pacer.wait();
#pragma once

#include <cstdint>

constexpr double kSecs_to_nsecs = 1e9;
constexpr int kBytes_to_Bits = 8;

/// Interval between data packets, ns; 0 until send_open() sets it.
extern std::uint64_t delay_target;

/// Bits that a packet of `udata_size` bytes (1400..65507) takes on Ethernet,
/// the headers of its fragments included.
std::uint32_t line_bits(std::uint32_t udata_size);

/// Seconds per packet at `speed` Mbit/s (1 Mbit = 1,048,576 bits), not 0.
double packet_interval(std::uint32_t udata_size, double speed);

/// `interval` seconds in whole ns, truncated; 0 for what is negative or no
/// number, the largest value for what does not fit.
std::uint64_t to_delay(double interval);

/// False when `speed` is 0.00001 or less, or no number: packets go out at once.
bool is_paced();

/// Real-time clock, ns since 1970, by way of a double: its resolution is a few
/// hundred ns.
std::uint64_t GetNanoTime();

/// Says when the next packet may go out. It owns that due time.
class Pacer {
 public:
  /// The first packet is due one `interval` (ns) after `now`, by GetNanoTime().
  Pacer(std::uint64_t interval, std::uint64_t now) : interval_(interval), due_(now + interval) {}

  /// True if a packet may go out at `now`. The next one is then due one interval after
  /// `now`, however late this one is: it never hurries the others. While false, a due
  /// time further ahead than one interval comes nearer: the clock was stepped back, and
  /// the line must not wait for the step.
  bool may_send(std::uint64_t now);

  /// True if a packet may go out at `now`; changes nothing.
  bool is_due(std::uint64_t now) const { return now >= due_; }

  /// Returns when a packet may go out. Spins, since intervals of 100 us are too short to
  /// sleep.
  void wait();

 private:
  std::uint64_t interval_;
  std::uint64_t due_;
};
