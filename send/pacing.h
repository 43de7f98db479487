// send/pacing.h: spaces data packets so that the line carries `speed`.
//
//   Pacer pacer(delay_target, GetNanoTime());
//   before each packet, if is_paced():  pacer.wait();
#pragma once

#include <cstdint>

constexpr double kSecs_to_nsecs = 1e9;
constexpr int kBytes_to_Bits = 8;

/// Interval between data packets, ns. It is 0 until send_open() sets it.
extern std::uint64_t delay_target;

/// Returns the bits that a packet of `udata_size` bytes (1400..65507) takes on
/// Ethernet, the headers of its fragments included.
std::uint32_t line_bits(std::uint32_t udata_size);

/// Returns the seconds per packet at `speed` Mbit/s (1 Mbit = 1,048,576 bits), which
/// must not be 0.
double packet_interval(std::uint32_t udata_size, double speed);

/// Returns `interval` (seconds) in ns, rounded down. Returns 0 if it is negative or
/// not a number, and the largest value if it does not fit.
std::uint64_t to_delay(double interval);

/// False when `speed` is 0.00001 or less, or not a number: packets then go out at once.
bool is_paced();

/// Returns the real time in ns since 1970. It is computed as a double, so its
/// resolution is a few hundred ns.
std::uint64_t GetNanoTime();

/// Keeps the time at which the next packet is due.
class Pacer {
 public:
  /// The first packet is due one `interval` (ns) after `now`, by GetNanoTime().
  Pacer(std::uint64_t interval, std::uint64_t now) : interval_(interval), due_(now + interval) {}

  /// True if a packet may go out at `now`. The next one is then due one interval after
  /// `now`, however late this one is, so that time lost is never made up. A due time
  /// more than one interval ahead is moved to one interval ahead: the clock was set back,
  /// and the line must not wait that long.
  bool may_send(std::uint64_t now);

  /// True if a packet may go out at `now`. Changes nothing.
  bool is_due(std::uint64_t now) const { return now >= due_; }

  /// Does not return before a packet may go out. Spins, since intervals of 100 us are too
  /// short to sleep.
  void wait();

 private:
  std::uint64_t interval_;
  std::uint64_t due_;
};
