// softlib/clock.h: the millisecond clock that pauses and cycles go by.
#pragma once

#include <cstdint>

/// Real-time clock, ms since 1970; it follows steps of the system's clock.
std::uint64_t GetTickCount();
