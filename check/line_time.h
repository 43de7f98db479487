// check/line_time.h: computes how long the sender takes to send a file.
#pragma once

#include <cstdint>

/// Returns the seconds from the first header packet of a file of `size` bytes until the
/// sender turns to the next file, with the present settings: headers, paced data packets,
/// passes, the seal, pauses. A slow disk or a busy machine adds to it. Unpaced packets go
/// out at `card_speed` (Mbit/s of 1,000,000 bits), or in no time if that is 0.
double seconds_for_file(std::uint64_t size, int card_speed);
