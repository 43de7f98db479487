// softlib/clock.h: two millisecond clocks, one to wait by and one to tell the time.
#pragma once

#include <cstdint>

/// Returns the real time in ms since 1970. It jumps when the system's clock is set.
std::uint64_t GetTickCount();

/// Returns ms since some moment before the start, for differences only. This clock
/// (CLOCK_MONOTONIC) can't be set, and stands still while the machine sleeps, as a
/// pause does. A wait by it therefore never ends early or hangs.
std::uint64_t steady_ms();
