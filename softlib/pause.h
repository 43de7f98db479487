// softlib/pause.h: every sleep of the program, alone in its object file so
// that a test can put its own in its place.
#pragma once

#include <cstdint>

/// Sleeps for at least `us` microseconds.
void pause_us(std::uint32_t us);
