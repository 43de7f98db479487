// send/transfer_id.h: makes the numbers that tell transfers apart.
#pragma once

#include <cstdint>

/// Returns a new id: 16 random bits, 16 bits of the millisecond clock, and a 32-bit
/// counter that starts at a random value.
std::uint64_t next_transfer_id();
