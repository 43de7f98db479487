#include "softlib/escape.h"

#include <cwchar>
#include <cwctype>

namespace {

void append_escaped(std::string& to, char c) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  const auto byte = static_cast<unsigned char>(c);
  to += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 0xF]};
}

bool is_control(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < 0x20 || byte == 0x7F;
}

/// Returns the length in bytes of the printable character at the start of the `size`
/// bytes at `at`; 0 if they don't begin with a printable character.
std::size_t printable(const char* at, std::size_t size) {
  std::mbstate_t state{};
  wchar_t c = 0;
  const std::size_t len = std::mbrtowc(&c, at, size, &state);
  if (len > size) return 0;  // -1 or -2: invalid, or cut short
  return std::iswprint(static_cast<std::wint_t>(c)) != 0 ? len : 0;
}

}  // namespace

std::string escape_controls(const std::string& text) {
  std::string result;
  for (const char c : text) {
    if (is_control(c)) {
      append_escaped(result, c);
    } else {
      result += c;
    }
  }
  return result;
}

std::string escape_unprintable(const std::string& text) {
  std::string result;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t len = printable(text.data() + at, text.size() - at);
    if (len > 0) {
      result.append(text, at, len);
      at += len;
    } else {
      append_escaped(result, text[at++]);
    }
  }
  return result;
}
