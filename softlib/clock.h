// softlib/clock.h: one millisecond clock to wait by, another to tell the time.
#pragma once

#include <cstdint>

/// Real-time clock, ms since 1970; it follows steps of the system's clock.
std::uint64_t GetTickCount();

/// ms since some moment before the start, for differences only. Nobody steps
/// this clock (CLOCK_MONOTONIC), and the time for which the machine sleeps does
/// not count, as it does not for a pause: no wait jumps or hangs.
std::uint64_t steady_ms();
