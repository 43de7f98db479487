#include "receiver/ledger/journal.h"

#include <cstdio>
#include <deque>
#include <optional>
#include <string>
#include <utility>

#include "wire/crc32.h"

namespace {

constexpr std::size_t kTimeAt = 2;
constexpr std::size_t kIdAt = 10;
constexpr std::size_t kCrcAt = 22;
constexpr std::size_t kPathAt = 31;

/// The next lines of a stream, read no further than they are asked for.
class Lines {
 public:
  explicit Lines(std::istream& in) : in_(in) {}

  /// The line `ahead` lines from here; null behind the last one.
  const std::string* at(std::size_t ahead) {
    while (lines_.size() <= ahead) {
      if (!read_line()) return nullptr;
    }
    return &lines_[ahead].text;
  }

  /// Returns the bytes that these `count` lines took.
  std::uint64_t skip(std::size_t count) {
    std::uint64_t bytes = 0;
    for (; count > 0; --count) {
      bytes += lines_.front().bytes;
      lines_.pop_front();
    }
    return bytes;
  }

 private:
  struct Line {
    std::string text;
    std::uint64_t bytes = 0;  ///< with its line feed, where it has one
  };

  /// Keeps a line that is too long for any entry up to one byte too many.
  bool read_line() {
    constexpr std::size_t kMost = kPathAt + kLongestJournalPath + 1;
    int byte = in_.get();
    if (byte == EOF) return false;
    Line line;
    for (; byte != EOF && byte != '\n'; byte = in_.get()) {
      if (line.text.size() < kMost) line.text += static_cast<char>(byte);
      ++line.bytes;
    }
    if (byte != EOF) ++line.bytes;
    lines_.push_back(std::move(line));
    return true;
  }

  std::istream& in_;
  std::deque<Line> lines_;
};

std::optional<std::uint32_t> read_hex(const std::string& line, std::size_t at) {
  std::uint32_t value = 0;
  for (std::size_t i = at; i < at + 8; ++i) {
    const char c = line[i];
    const bool digit = c >= '0' && c <= '9';
    if (!digit && (c < 'A' || c > 'F')) return {};
    value = value << 4 | static_cast<std::uint32_t>(digit ? c - '0' : c - 'A' + 10);
  }
  return value;
}

std::optional<JournalEntry> read_entry(const std::string& line) {
  if (line.size() < kPathAt || line.size() > kPathAt + kLongestJournalPath ||
      line.compare(0, kTimeAt, "00") != 0 || line.compare(18, 4, "0000") != 0 ||
      line[kPathAt - 1] != ' ') {
    return {};
  }
  const auto send_time = read_hex(line, kTimeAt);
  const auto id_low = read_hex(line, kIdAt);
  const auto path_crc = read_hex(line, kCrcAt);
  if (!send_time || !id_low || !path_crc) return {};
  JournalEntry entry;
  entry.send_time = *send_time;
  entry.id_low = *id_low;
  entry.path_crc = *path_crc;
  entry.path = line.substr(kPathAt);
  return entry;
}

/// crc32() over `text`, on from `crc`.
std::uint32_t crc_with(const std::string& text, std::uint32_t crc) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
  return static_cast<std::uint32_t>(crc32(crc, bytes, static_cast<unsigned int>(text.size())));
}

/// Continues the path of `entry`, the first of `lines`, up to where its CRC agrees.
/// Returns how many lines the entry takes, 0 if it never agrees.
std::size_t complete(JournalEntry& entry, Lines& lines) {
  auto crc = static_cast<std::uint32_t>(crc32_str(entry.path));
  std::size_t taken = 1;
  for (; crc != entry.path_crc; ++taken) {
    const std::string* next = lines.at(taken);
    if (next == nullptr || entry.path.size() + 1 + next->size() > kLongestJournalPath) return 0;
    entry.path.append("\n").append(*next);
    crc = crc_with(*next, crc_with("\n", crc));
  }
  return taken;
}

}  // namespace

bool is_believable(const JournalEntry& entry) {
  return static_cast<std::uint32_t>(crc32_str(entry.path)) == entry.path_crc;
}

Journal read_journal(std::istream& in, std::size_t most) {
  Journal journal;
  Lines lines(in);
  for (; const std::string* line = lines.at(0); --most) {
    if (most == 0) {
      journal.is_whole = false;
      break;
    }
    std::optional<JournalEntry> entry = read_entry(*line);
    const std::size_t taken = entry ? complete(*entry, lines) : 0;
    if (taken > 0) {
      journal.entries.push_back(std::move(*entry));
    } else {
      ++journal.bad_lines;
    }
    journal.bytes += lines.skip(taken > 0 ? taken : 1);
  }
  return journal;
}
