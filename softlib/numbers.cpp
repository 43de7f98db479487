#include "softlib/numbers.h"

#include <charconv>
#include <clocale>
#include <cstdlib>
#include <limits>
#include <string_view>

int to_int(const std::string& text) {
  return static_cast<int>(std::strtol(text.c_str(), nullptr, 10));
}

double to_double(const std::string& text) {
  static const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);  // a constant: never fails
  return strtod_l(text.c_str(), nullptr, plain);
}

std::optional<std::uint64_t> to_bytes(const std::string& text) {
  constexpr std::string_view kUnits = "KMG";
  const char* const end = text.data() + text.size();
  std::uint64_t number = 0;
  const auto [unit, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc()) return std::nullopt;
  if (unit == end) return number;
  const std::size_t at = kUnits.find(*unit);
  if (at == std::string_view::npos || unit + 1 != end) return std::nullopt;
  const auto shift = 10 * (at + 1);
  if (number > std::numeric_limits<std::uint64_t>::max() >> shift) return std::nullopt;
  return number << shift;
}
