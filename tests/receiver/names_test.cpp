#include "receiver/names.h"

#include <gtest/gtest.h>

#include <random>

TEST(NamesTest, ConvertsWhatTheCharsetHas) {
  for (const auto& [charset, text] : {std::pair{"UTF-8", "\u041F\u0440%98 5%25ad"},
                                      {"KOI8-R", "\xF0\xD2%98 5%25ad"},
                                      {"ASCII//TRANSLIT", "%CF%F0%98 5%25ad"},
                                      {"CP1251", "\xCF\xF0\x98 5%25ad"},
                                      {"no-such-set", "\xCF\xF0\x98 5%25ad"}})
    EXPECT_EQ(text, safe_name(from_wire("\xCF\xF0\x98 5%ad", charset)));
  EXPECT_TRUE(is_charset("UTF-8") && is_charset("cp1251") && is_charset("SJIS"));
  for (const char* bad : {"UTF-16", "EBCDIC-US", "x", ""}) EXPECT_FALSE(is_charset(bad)) << bad;
}

TEST(NamesTest, MakesOneComponentOfAnyNameAndGivesItBack) {
  using Names = std::vector<std::string>;
  EXPECT_EQ((Names{"%2E%2E", "...", "%2E", "%2Etarnwick-1"}),
            safe_folders("//../..././/.tarnwick-1"));
  EXPECT_EQ((Names{"%00", "a%2Fb%7F"}), (Names{safe_name(""), safe_name("a/b\x7F")}));
  std::mt19937 random(11);
  const std::string likely = "%%%%2fF05./..\x98";
  for (std::size_t round = 0; round < 2000; ++round) {
    std::string wire(round % 1000 == 0 ? 60'000 : random() % 200, '\0');
    for (char& c : wire)
      c = random() % 2 ? likely[random() % likely.size()] : static_cast<char>(random() % 255 + 1);
    for (const char* charset : {"cp1251", "UTF-8", "ASCII"}) {
      const std::string safe = safe_name(from_wire(wire, charset));
      ASSERT_TRUE(!safe.empty() && safe.size() <= 255 && safe != "." && safe != "..");
      for (const char c : safe) ASSERT_TRUE(c != '/' && c != '\x7F' && (c < 0 || c >= ' '));
      const bool whole = safe.find('~') == std::string::npos && charset[0] != 'U';
      ASSERT_EQ(whole ? wire : "", whole ? unescape(safe) : "");
    }
  }
}

TEST(NamesTest, CutsLongNamesBetweenCharactersAndTellsThemApart) {
  const std::string cyrillic = "x" + from_wire(std::string(200, '\xCF'), "UTF-8") + ".tar";
  const std::string cut = safe_name(cyrillic);
  EXPECT_EQ(cyrillic.substr(0, 241) + "~", cut.substr(0, 242));  // 242 would tear one
  EXPECT_NE(cut, safe_name("\u041F" + cyrillic));
  EXPECT_EQ("12345678901234567~89D1CCD4.abc", fit_name("123456789012345678901234567890.abc", 30));
  EXPECT_EQ(".a (1)", with_suffix(".a", " (1)"));
}
