// seal/percent.h: names as they stand in a record, any byte in ASCII.
#pragma once

#include <string>
#include <string_view>

/// Letters, digits and "-._~/" stand for themselves, every other byte is "%" and
/// two upper-case hexadecimal digits.
std::string percent_encode(std::string_view bytes);

/// Reads what percent_encode() wrote. False for any other text, and for one that
/// stands for a NUL, which is in no file's name; `bytes` is then undefined.
bool percent_decode(std::string_view text, std::string& bytes);
