// A name at the receiver, in any character set: the first byte says which, the second how
// long a name may be, the rest is the name. It becomes components of a path, and says what
// it was.
#include "receiver/base/names.h"

#include <cctype>
#include <climits>

#include "fuzz/target.h"
#include "receiver/base/utf8.h"

namespace {

const std::string kCharsets[] = {"UTF-8",           "cp1251",     "KOI8-R",      "ISO-8859-5",
                                 "CP866",           "ISO-8859-1", "ASCII",       "EUC-JP",
                                 "SHIFT_JIS",       "GB18030",    "ISO-2022-JP", "UTF-16",
                                 "UTF-7",           "EBCDIC-US",  "BIG5",        "EUC-KR",
                                 "ASCII//TRANSLIT", "",           "MACINTOSH",   "none"};

bool is_digit(const std::string& text, std::size_t at) {
  return at < text.size() && std::isxdigit(static_cast<unsigned char>(text[at])) != 0;
}

/// The bytes that the escapes stand for.
std::string unescaped(const std::string& name) {
  std::string bytes;
  for (std::size_t i = 0; i < name.size(); ++i) {
    const bool escape = name[i] == '%' && is_digit(name, i + 1) && is_digit(name, i + 2);
    bytes += escape ? static_cast<char>(std::stoul(name.substr(i + 1, 2), nullptr, 16)) : name[i];
    if (escape) i += 2;
  }
  return bytes;
}

void check_component(const std::string& name) {
  check(!name.empty() && name.size() <= NAME_MAX && name != "." && name != "..");
  check(name.compare(0, sizeof kHiddenFolder - 1, kHiddenFolder) != 0);
  for (const char c : name) check(static_cast<unsigned char>(c) >= ' ' && c != '/' && c != '\x7F');
}

void check_numbered(const std::string& name, std::size_t limit) {
  const std::string fit = fit_name(name, limit);
  check(fit.size() <= limit && (name.size() > limit || fit == name));
  check(with_suffix(name, " (1000)", limit).size() <= limit);
  check(!is_utf8(name) || is_utf8(fit));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::string& charset = kCharsets[input.byte() % std::size(kCharsets)];
  const std::size_t limit = 42 + input.byte() % 22U;  // a CRC and an extension, and more
  const std::string wire = input.rest();
  const std::string name = from_wire(wire, charset);
  check(charset != "UTF-8" || is_utf8(name));
  if (charset == "none" || charset == "cp1251" || charset == "ASCII") {
    check(unescaped(name) == wire);
  }
  const std::string safe = safe_name(name);
  check_component(safe);
  if (!name.empty() && safe.find('~') == std::string::npos) {
    check(unescaped(safe) == unescaped(name));
  }
  check_numbered(safe, limit);
  for (const std::string& folder : safe_folders(name)) check_component(folder);
  return 0;
}
