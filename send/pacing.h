// send/pacing.h: spaces data packets so that the line carries `speed`.
//
//   std::uint64_t due = GetNanoTime() + delay_target;
//   before each packet, if is_paced():  due = wait_until(due) + delay_target;
//
// The wait spins: intervals of 100 us are too short to sleep. The next due time
// counts from the end of the wait, so a late packet never hurries the others.
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

/// Spins until `due` (ns) and gives the time at which it stopped.
std::uint64_t wait_until(std::uint64_t due);

/// `due`, or one `interval` from `now` when it lies further ahead than that:
/// the clock was stepped back, and the line must not wait for the step.
std::uint64_t due_after_step(std::uint64_t due, std::uint64_t now, std::uint64_t interval);
