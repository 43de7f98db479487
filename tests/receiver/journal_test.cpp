// Trash journals, as senders write them and as faults and file names spoil them.
#include "receiver/ledger/journal.h"

#include <gtest/gtest.h>

#include <sstream>

#include "wire/crc32.h"

namespace {

std::string entry(const std::string& path, const std::string& crc_of) {
  char head[64];
  std::snprintf(head, sizeof head, "00000000AA000000010000%08X ",
                static_cast<unsigned>(crc32_str(crc_of)));
  return head + path + "\n";
}

std::string entry(const std::string& path) { return entry(path, path); }

/// The paths, each in brackets, and the number of bad lines of each `most` lines.
std::string read(const std::string& text, std::size_t most = SIZE_MAX) {
  std::string found;
  Journal journal;
  std::uint64_t at = 0;
  do {
    std::istringstream in(text.substr(at));
    journal = read_journal(in, most);
    at += journal.bytes;
    for (const JournalEntry& each : journal.entries) found += "[" + each.path + "]";
    found += std::to_string(journal.bad_lines);
  } while (!journal.is_whole);
  EXPECT_EQ(text.size(), at);
  return found;
}

}  // namespace

TEST(Journal, IsReadInPortions) {
  const std::string text = entry("/d/1") + "torn\n" + std::string(9000, 'x') + "\n" +
                           entry("/d/2\n3") + "\n" + entry("/d/4") + "cut";
  EXPECT_EQ("[/d/1]1[/d/2\n3]1[/d/4]11", read(text, 2));
}

TEST(Journal, BelievesOnlyEntriesWhosePathHasTheirCrc) {
  const std::string inner = entry("/d/inner", "else"), good = entry("/d/good");
  const std::string forging = "/d/a\n" + entry("/d/never sent") + "b";
  const std::string longest(kLongestJournalPath, 'p'), lines(kLongestJournalPath, '\n');
  const std::string cut = good.substr(0, good.size() - 1);
  const std::string nul = entry(std::string("/d\0x", 4), "/d");
  for (const auto& [text, expected] : std::vector<std::pair<std::string, std::string>>{
           {"", "0"},
           {good + good, "[/d/good][/d/good]0"},
           {cut, "[/d/good]0"},
           {good + cut.substr(0, cut.size() - 1), "[/d/good]1"},
           {"torn\n" + good + "behind\n", "[/d/good]2"},
           {cut.substr(0, 20) + "\n" + good, "[/d/good]1"},
           {cut.substr(0, 33) + good + good, "[/d/good]1"},
           {cut.substr(0, 33) + "\n" + good + good, "[/d/good][/d/good]1"},
           {entry(forging) + good, "[" + forging + "][/d/good]0"},
           {entry("/d/a\n\n") + good, "[/d/a\n\n][/d/good]0"},
           {entry("/d/a\n" + inner) + good, "[/d/a\n" + inner + "][/d/good]0"},
           {entry("/d/a", "else") + entry("/d/b", "else") + good, "[/d/good]2"},
           {entry("/d/x\r", "/d/x") + good, "[/d/good]1"},
           {nul + good, "[/d/good]1"},
           {entry(longest) + good, "[" + longest + "][/d/good]0"},
           {entry(lines) + good, "[" + lines + "][/d/good]0"},
           {entry(longest + "p") + good, "[/d/good]1"},
           {entry(lines + "\n") + good, "[/d/good]" + std::to_string(lines.size() + 2)},
           {std::string(1 << 20, '0') + "\n" + good, "[/d/good]1"},
           {"01" + good.substr(2) + good, "[/d/good]1"},
           {good.substr(0, 30) + "_" + good.substr(31) + good, "[/d/good]1"},
           {entry("/d/lower") + "00000000aa000000010000F9462090 c\n", "[/d/lower]1"},
       }) {
    EXPECT_EQ(expected, read(text)) << text.substr(0, 200);
  }
}
