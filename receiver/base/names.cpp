#include "receiver/base/names.h"

#include <iconv.h>
#include <strings.h>

#include <array>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <map>
#include <sstream>

#include "wire/crc32.h"
#include "wire/wire_format.h"

namespace {

constexpr std::size_t kLongestExtension = 32;

/// What each byte of the wire's code page becomes; empty when it can't be told.
using Table = std::vector<std::string>;

std::string escaped(char byte) {
  std::array<char, 4> text{};
  std::snprintf(text.data(), text.size(), "%%%02X", static_cast<unsigned char>(byte));
  return text.data();
}

bool is_hex(char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; }

bool is_escape(const std::string& text, std::size_t at) {
  return text.size() - at > 2 && text[at] == '%' && is_hex(text[at + 1]) && is_hex(text[at + 2]);
}

std::string convert_byte(iconv_t converter, char byte) {
  std::array<char, 32> text{};
  char* in = &byte;
  char* out = text.data();
  std::size_t in_left = 1;
  std::size_t out_left = text.size();
  iconv(converter, nullptr, nullptr, nullptr, nullptr);
  // more than 0: a makeshift, which could not be turned back
  if (iconv(converter, &in, &in_left, &out, &out_left) != 0) return escaped(byte);
  iconv(converter, nullptr, nullptr, &out, &out_left);  // back to the initial shift state
  return {text.data(), out};
}

/// Separators and escapes are looked for as bytes, so they have to be themselves.
bool keeps_ascii(const Table& table) {
  for (char c = ' '; c <= '}'; ++c) {
    const bool national = c == '\\';  // the yen sign in Japan, and not ours to read
    if (!national && table[static_cast<unsigned char>(c)] != std::string(1, c)) return false;
  }
  return true;
}

Table make_table(const std::string& charset) {
  Table table;
  if (charset.empty()) return table;  // to iconv_open(3) that is the locale's
  const iconv_t converter = iconv_open(charset.c_str(), SND_CP);
  if (reinterpret_cast<std::intptr_t>(converter) == -1) return table;
  for (int byte = 0; byte < 256; ++byte)
    table.push_back(convert_byte(converter, static_cast<char>(byte)));
  iconv_close(converter);
  if (!keeps_ascii(table)) table.clear();
  return table;
}

const Table& table_for(const std::string& charset) {
  thread_local std::map<std::string, Table> tables;
  const auto known = tables.find(charset);
  return known != tables.end() ? known->second : tables[charset] = make_table(charset);
}

bool continues_character(char c) { return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U; }

/// The first `size` bytes, less those of a character that would be torn.
std::string cut(const std::string& text, std::size_t size) {
  if (text.size() <= size) return text;
  std::size_t at = size;
  while (at > 0 && size - at < 3 && continues_character(text[at])) --at;
  return text.substr(0, continues_character(text[at]) ? size : at);  // not UTF-8: anywhere
}

}  // namespace

std::string from_wire(const std::string& text, const std::string& charset) {
  const bool same = strcasecmp(charset.c_str(), SND_CP) == 0;
  const Table& table = table_for(same ? "" : charset);
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (is_escape(text, i))
      result += escaped('%');
    else if (table.empty())
      result += text[i];
    else
      result += table[static_cast<unsigned char>(text[i])];
  }
  return result;
}

std::string safe_name(const std::string& name) {
  if (name.empty()) return escaped('\0');
  if (name == "..") return escaped('.') + escaped('.');
  const bool reserved = name == "." || name.rfind(kHiddenFolder, 0) == 0;
  std::string result = reserved ? escaped('.') : "";
  for (const char c : name.substr(reserved ? 1 : 0)) {
    const bool bad = static_cast<unsigned char>(c) < ' ' || c == '/' || c == '\x7F';
    result += bad ? escaped(c) : std::string(1, c);
  }
  return fit_name(result);
}

std::vector<std::string> safe_folders(const std::string& path) {
  std::vector<std::string> folders;
  std::istringstream components(path);
  for (std::string component; std::getline(components, component, '/');) {
    if (!component.empty()) folders.push_back(safe_name(component));
  }
  return folders;
}

std::string joined_path(const std::vector<std::string>& folders) {
  std::string path;
  for (const std::string& folder : folders) path += folder + "/";
  return path;
}

std::string with_suffix(const std::string& name, const std::string& suffix, std::size_t limit) {
  const std::size_t dot = name.rfind('.');
  const bool extended =
      dot != std::string::npos && dot > 0 && name.size() - dot <= kLongestExtension;
  const std::string tail = suffix + (extended ? name.substr(dot) : "");
  return cut(name.substr(0, extended ? dot : name.size()), limit - tail.size()) + tail;
}

std::string fit_name(const std::string& name, std::size_t limit) {
  if (name.size() <= limit) return name;
  std::array<char, 10> suffix{};
  const auto crc = ~static_cast<std::uint32_t>(crc32_str(name));
  std::snprintf(suffix.data(), suffix.size(), "~%08X", crc);
  return with_suffix(name, suffix.data(), limit);
}

bool is_charset(const std::string& charset) { return !table_for(charset).empty(); }
