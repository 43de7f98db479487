// softlib/numbers.h: numbers out of text that a user wrote.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// Returns what atoi() returns for `text` (leading blanks and a sign, digits up
/// to the first other character, 0 without any), but defined for a number of
/// any length: the low 32 bits of what strtol() returns, so of the number
/// itself up to 64 bits; beyond that -1 for a positive one, 0 for a negative.
int to_int(const std::string& text);

/// Returns what atof() returns in the "C" locale: the decimal point is a point, whatever
/// locale is in force.
double to_double(const std::string& text);

/// The bytes that `text` stands for: decimal digits alone, or with one "K", "M"
/// or "G" behind them for 1024, 1024^2 or 1024^3. None for any other text (a sign,
/// a blank, nothing at all), or if the result exceeds 64 bits.
std::optional<std::uint64_t> to_bytes(const std::string& text);
