// A trash journal. The bytes "=======N" where a CRC stands become that of the path, which
// goes on to the end of the Nth line. What is read is written again alike.
#include "receiver/ledger/journal.h"

#include <sstream>

#include "fuzz/target.h"
#include "receiver/base/hex.h"
#include "wire/crc32.h"

namespace {

constexpr std::size_t kCrcAt = 22;
constexpr std::size_t kPathAt = 31;
const std::string kMark = "=======";

std::string crc_of(const std::string& path) {
  return hex(static_cast<std::uint32_t>(crc32_str(path)), 8);
}

std::string with_crcs(std::string text) {
  for (std::size_t at = text.rfind(kMark); at != std::string::npos && at >= kCrcAt;
       at = text.rfind(kMark, at - 1)) {
    const std::size_t path_at = at - kCrcAt + kPathAt;
    const std::size_t lines_at = at + kMark.size();
    if (path_at >= text.size()) continue;
    std::size_t end = path_at;
    for (int lines = text[lines_at] - '0'; lines > 0 && end < text.size(); --lines) {
      end = std::min(text.find('\n', end + 1), text.size());
    }
    text.replace(at, 8, crc_of(text.substr(path_at, end - path_at)));
  }
  return text;
}

Journal read(const std::string& text) {
  std::istringstream in(text);
  return read_journal(in);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Journal journal = read(with_crcs(text_of(data, size)));
  std::string text;
  for (const JournalEntry& entry : journal.entries) {
    check(is_believable(entry) && entry.path.size() <= kLongestJournalPath);
    text += "00" + hex(entry.send_time, 8) + hex(entry.id_low, 8) + "0000" +
            hex(entry.path_crc, 8) + " " + entry.path + "\n";
  }
  check(journal.bad_lines + journal.entries.size() <= size + 1);
  if (text.empty()) return 0;
  const Journal again = read(text);
  check(again.bad_lines == 0 && again.entries.size() == journal.entries.size());
  for (std::size_t i = 0; i < again.entries.size(); ++i) {
    check(again.entries[i].path == journal.entries[i].path);
  }
  return 0;
}
