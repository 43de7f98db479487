// softlib/numbers.h: reads numbers in text that a user wrote.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// Returns what atoi() returns for `text` (leading blanks and a sign, digits up
/// to the first other character, 0 if there are no digits), but is defined for a
/// number of any length: it returns the low 32 bits of what strtol() returns.
/// These are the number's own low bits if it fits in 64 bits; else -1 for a
/// positive number and 0 for a negative one.
int to_int(const std::string& text);

/// Returns what atof() returns in the "C" locale: the decimal point is a point, whatever
/// locale is in force.
double to_double(const std::string& text);

/// Returns the number of bytes that `text` stands for: decimal digits, with or without
/// one "K", "M" or "G" behind them for 1024, 1024^2 or 1024^3. Returns nothing for any
/// other text (with a sign or a blank, or an empty one), or if the result exceeds 64 bits.
std::optional<std::uint64_t> to_bytes(const std::string& text);
