#include "receiver/base/names.h"

#include <gtest/gtest.h>

#include <cctype>
#include <random>

namespace {

/// The name that was escaped: every "%XX" a byte again, "%00" nothing.
std::string unescape(const std::string& name) {
  const auto is_digit = [&name](std::size_t i) {
    return i < name.size() && std::isxdigit(static_cast<unsigned char>(name[i])) != 0;
  };
  std::string result;
  for (std::size_t i = 0; i < name.size(); ++i) {
    char byte = name[i];
    if (byte == '%' && is_digit(i + 1) && is_digit(i + 2)) {
      byte = static_cast<char>(std::stoul(name.substr(i + 1, 2), nullptr, 16));
      i += 2;
    }
    if (byte != '\0') result += byte;
  }
  return result;
}

}  // namespace

TEST(NamesTest, ConvertsWhatTheCharsetHas) {
  EXPECT_EQ("\u041F%98 5%25ad", safe_name(from_wire("\xCF\x98 5%ad", "UTF-8")));
  EXPECT_EQ("%CF%98 5%25ad", safe_name(from_wire("\xCF\x98 5%ad", "ASCII//TRANSLIT")));
  EXPECT_EQ("\xCF\x98 5%25ad", safe_name(from_wire("\xCF\x98 5%ad", "CP1251")));
  for (const char* bad : {"UTF-16", "EBCDIC-US", "x", ""}) EXPECT_FALSE(is_charset(bad)) << bad;
}

TEST(NamesTest, MakesOneComponentOfAnyNameAndGivesItBack) {
  const std::vector<std::string> parts{"%2E%2E", "...", "%2E", "%2Etarnwick-1"};
  EXPECT_EQ(parts, safe_folders("//../..././/.tarnwick-1"));
  std::mt19937 random(11);
  for (std::size_t round = 0; round < 2000; ++round) {
    std::string wire(round % 1000 == 999 ? 60'000 : round % 200, '\0');
    for (char& c : wire)
      c = random() % 2 ? "%%%%2fF05./..\x98"[random() % 14] : static_cast<char>(random() % 255 + 1);
    const std::string safe = safe_name(from_wire(wire, round % 2 ? "cp1251" : "ASCII"));
    ASSERT_TRUE(!safe.empty() && safe.size() <= 255 && safe != "." && safe != "..");
    for (const char c : safe) ASSERT_TRUE(c != '/' && c != '\x7F' && (c < 0 || c >= ' '));
    ASSERT_TRUE(safe.find('~') != std::string::npos || unescape(safe) == wire) << wire;
  }
}

TEST(NamesTest, CutsLongNamesBetweenCharactersAndKeepsTheExtension) {
  const std::string cyrillic = "x" + from_wire(std::string(200, '\xCF'), "UTF-8");
  EXPECT_EQ(cyrillic.substr(0, 245) + "~", safe_name(cyrillic).substr(0, 246));  // 246 tears one
  EXPECT_EQ("12345678901234567~89D1CCD4.abc", fit_name("123456789012345678901234567890.abc", 30));
}
