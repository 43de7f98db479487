// softlib/pause.h: the function behind every sleep of the program. It is alone in
// its object file so that a test can replace it.
#pragma once

#include <cstdint>

/// Sleeps for at least `us` microseconds.
void pause_us(std::uint32_t us);
