// receiver/base/hex.h: numbers as the sender writes them in the names of its trash.
#pragma once

#include <array>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <string>

/// `value` in at least `digits` (up to 16) upper-case hexadecimal digits; without
/// `digits`, a transfer's id.
inline std::string hex(std::uint64_t value, int digits = 16) {
  std::array<char, 17> text{};
  (void)std::snprintf(text.data(), text.size(), "%0*" PRIX64, digits, value);
  return text.data();
}
