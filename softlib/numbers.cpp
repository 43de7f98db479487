#include "softlib/numbers.h"

#include <cstdlib>

int to_int(const std::string& text) {
  return static_cast<int>(std::strtol(text.c_str(), nullptr, 10));
}

double to_double(const std::string& text) { return std::strtod(text.c_str(), nullptr); }
