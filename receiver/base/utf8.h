// receiver/base/utf8.h: tells UTF-8 text from other bytes, and shows either safely.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

/// A well-formed character; `bytes` is 0 if there is none.
struct Utf8Char {
  std::size_t bytes = 0;
  char32_t code = 0;
};

/// Returns the first character of `text`.
inline Utf8Char utf8_at(std::string_view text) {
  if (text.empty()) return {};
  const unsigned lead = static_cast<unsigned char>(text[0]);
  if (lead < 0x80) return {1, lead};
  if (lead < 0xC2 || lead > 0xF4) return {};
  const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (text.size() < length) return {};
  char32_t code = lead & (0xFFU >> (length + 1));
  for (std::size_t i = 1; i < length; ++i) {
    const unsigned next = static_cast<unsigned char>(text[i]);
    if ((next & 0xC0U) != 0x80) return {};
    code = code << 6 | (next & 0x3FU);
  }
  const char32_t least = length == 4 ? 0x10000 : length == 3 ? 0x800 : 0x80;
  const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
  if (code < least || code > 0x10FFFF || surrogate) return {};
  return {length, code};
}

/// True if all of `text` is well formed.
inline bool is_utf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t bytes = utf8_at(text).bytes;
    if (bytes == 0) return false;
    text.remove_prefix(bytes);
  }
  return true;
}

/// Characters that move a terminal's cursor or turn the direction of writing.
inline bool is_control(char32_t code) {
  return code < 0x20 || (code >= 0x7F && code < 0xA0) || code == 0x61C || code == 0x200E ||
         code == 0x200F || (code >= 0x2028 && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
}

/// Returns `text` for a terminal: each byte of a control character, and each byte that is not
/// valid UTF-8, becomes "\x" and two digits; "\" becomes "\\".
inline std::string printable(std::string_view text) {
  std::string shown;
  while (!text.empty()) {
    const Utf8Char next = utf8_at(text);
    const std::string_view bytes = text.substr(0, std::max<std::size_t>(next.bytes, 1));
    text.remove_prefix(bytes.size());
    if (next.bytes != 0 && !is_control(next.code)) {
      shown.append(next.code == '\\' ? "\\\\" : bytes);
      continue;
    }
    for (const char byte : bytes) {
      constexpr char kDigits[] = "0123456789ABCDEF";
      const unsigned value = static_cast<unsigned char>(byte);
      shown.append({'\\', 'x', kDigits[value >> 4], kDigits[value & 0xFU]});
    }
  }
  return shown;
}
