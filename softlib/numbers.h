// softlib/numbers.h: numbers out of text that a user wrote; never an error.
#pragma once

#include <string>

/// What atoi() gives for `text` (leading blanks and a sign, digits up to the
/// first other character, 0 without any), but defined for a number of any
/// length: one that does not fit is cut to its low 32 bits.
int to_int(const std::string& text);

/// What atof() gives; the decimal point is that of the locale in force.
double to_double(const std::string& text);
