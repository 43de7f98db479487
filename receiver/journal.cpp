#include "receiver/journal.h"

#include <optional>
#include <string>
#include <utility>

namespace {

constexpr std::size_t kTimeAt = 2;
constexpr std::size_t kIdAt = 10;
constexpr std::size_t kCrcAt = 22;
constexpr std::size_t kPathAt = 31;

std::optional<std::uint32_t> read_hex(const std::string& line, std::size_t at) {
  std::uint32_t value = 0;
  for (std::size_t i = at; i < at + 8; ++i) {
    const std::size_t digit = std::string("0123456789ABCDEF").find(line[i]);
    if (digit == std::string::npos) return {};
    value = value << 4 | static_cast<std::uint32_t>(digit);
  }
  return value;
}

std::optional<JournalEntry> read_entry(const std::string& line) {
  if (line.size() < kPathAt || line.compare(0, kTimeAt, "00") != 0 ||
      line.compare(18, 4, "0000") != 0 || line[kPathAt - 1] != ' ') {
    return {};
  }
  const auto send_time = read_hex(line, kTimeAt);
  const auto id_low = read_hex(line, kIdAt);
  const auto path_crc = read_hex(line, kCrcAt);
  if (!send_time || !id_low || !path_crc) return {};
  return JournalEntry{*send_time, *id_low, *path_crc, line.substr(kPathAt)};
}

/// CRC-32/JAMCRC over `text` too, as the sender makes it of its path.
std::uint32_t crc_with(const std::string& text, std::uint32_t crc = 0xFFFFFFFF) {
  for (const char c : text) {
    crc ^= static_cast<unsigned char>(c);
    for (int bit = 0; bit < 8; ++bit) crc = (crc & 1U) != 0 ? 0xEDB88320U ^ (crc >> 1) : crc >> 1;
  }
  return crc;
}

}  // namespace

Journal read_journal(std::istream& in) {
  Journal journal;
  std::string line;
  std::uint32_t crc = 0;  // of the last path so far
  while (std::getline(in, line)) {
    std::optional<JournalEntry> entry = read_entry(line);
    if (entry) {
      crc = crc_with(entry->path);
      journal.entries.push_back(std::move(*entry));
    } else if (journal.entries.empty() || crc == journal.entries.back().path_crc) {
      ++journal.bad_lines;
    } else {
      journal.entries.back().path.append("\n").append(line);
      crc = crc_with(line, crc_with("\n", crc));
    }
  }
  return journal;
}
