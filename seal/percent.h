// seal/percent.h: writes and reads names in a record, any bytes as ASCII.
#pragma once

#include <string>
#include <string_view>

/// Letters, digits and "-._~/" stand for themselves, every other byte is "%" and
/// two upper-case hexadecimal digits.
std::string percent_encode(std::string_view bytes);

/// Reads what percent_encode() wrote. Returns false for any other text, and for one with
/// a NUL, which no file name holds; `bytes` is then undefined.
bool percent_decode(std::string_view text, std::string& bytes);
