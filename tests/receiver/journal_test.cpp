// Trash journals, as senders write them and as faults and file names spoil them.
#include "receiver/ledger/journal.h"

#include <gtest/gtest.h>

#include <chrono>
#include <iomanip>
#include <sstream>

#include "wire/crc32.h"

namespace {

std::string entry(const std::string& path, const std::string& crc_of) {
  std::ostringstream line;
  line << "00000000AA00000001" << std::uppercase << std::hex << std::setfill('0') << std::setw(12)
       << static_cast<std::uint32_t>(crc32_str(crc_of)) << " " << path << "\n";
  return line.str();
}

std::string entry(const std::string& path) { return entry(path, path); }

/// The paths, each in brackets, then the number of bad lines.
std::string read(const std::string& text) {
  std::istringstream in(text);
  const Journal journal = read_journal(in);
  std::string found;
  for (const JournalEntry& each : journal.entries) found += "[" + each.path + "]";
  return found + std::to_string(journal.bad_lines);
}

double seconds_to_read(std::size_t lines, std::uint64_t& bad) {
  std::string text;
  for (std::size_t i = 0; i < lines; ++i) text += entry("", "no such path");
  std::istringstream in(text);
  const auto start = std::chrono::steady_clock::now();
  bad = read_journal(in).bad_lines;
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

TEST(Journal, IsReadInPortions) {
  const std::string text = entry("/d/1") + "torn\n" + std::string(9000, 'x') + "\n" +
                           entry("/d/2\n3") + "\n" + entry("/d/4") + "cut";
  std::string found;
  Journal portion;
  portion.is_whole = false;
  for (std::uint64_t at = 0; !portion.is_whole; at += portion.bytes) {
    std::istringstream in(text.substr(at));
    portion = read_journal(in, 2);
    for (const JournalEntry& each : portion.entries) found += "[" + each.path + "]";
    found += std::to_string(portion.bad_lines) + " ";
  }
  EXPECT_EQ("[/d/1]1 [/d/2\n3]1 [/d/4]1 1 ", found);
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
           {entry("/d/lower") + "00000000aa000000010000F9462090 c\n", "[/d/lower]1"},
       }) {
    EXPECT_EQ(expected, read(text)) << text.substr(0, 200);
  }
}

TEST(Journal, TakesTimeThatGrowsWithTheLines) {
  std::uint64_t bad = 0;
  const double little = seconds_to_read(500, bad);
  EXPECT_GT(100 * little + 1, seconds_to_read(6500, bad));  // 256 times, were it quadratic
  EXPECT_EQ(6500U, bad);
}
