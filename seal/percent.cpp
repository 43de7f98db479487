#include "seal/percent.h"

namespace {

constexpr std::string_view kDigits = "0123456789ABCDEF";
constexpr std::string_view kPlain =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~/";

bool plain(char c) { return kPlain.find(c) != std::string_view::npos; }

}  // namespace

std::string percent_encode(std::string_view bytes) {
  std::string text;
  for (const char c : bytes) {
    if (plain(c)) {
      text += c;
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    text.append(1, '%').append(1, kDigits[byte >> 4]).append(1, kDigits[byte & 15]);
  }
  return text;
}

bool percent_decode(std::string_view text, std::string& bytes) {
  bytes.clear();
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (plain(text[i])) {
      bytes += text[i];
      continue;
    }
    if (text[i] != '%' || text.size() - i < 3) return false;
    const std::size_t high = kDigits.find(text[i + 1]), low = kDigits.find(text[i + 2]);
    if (high == std::string_view::npos || low == std::string_view::npos) return false;
    const char c = static_cast<char>(16 * high + low);
    if (c == '\0' || plain(c)) return false;
    bytes += c;
    i += 2;
  }
  return true;
}
