// send/transfer_id.h: the number that tells one transfer from all others.
#pragma once

#include <cstdint>

/// A new id: 16 random bits, 16 bits of the millisecond clock, and a 32-bit
/// counter that starts at a random value with the first transfer.
std::uint64_t next_transfer_id();
