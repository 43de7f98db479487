// check/line_time.h: how long the sender needs for a file, by its own arithmetic.
#pragma once

#include <cstdint>

/// Seconds from the first header packet of a file of `size` bytes to the look at the next
/// one, with the settings in force: headers, paced data packets, passes, the seal, pauses.
/// The disk, and a machine that is late, add to it. Unpaced packets take `card_speed`
/// Mbit/s of 1,000,000 bits, or no time if that is 0.
double seconds_for_file(std::uint64_t size, int card_speed);
