// receiver/ledger/journal.h: reads a sender's trash journal.
#pragma once

#include <cstddef>
#include <cstdint>
#include <istream>
#include <vector>

#include "receiver/base/record.h"

/// The longest path of an entry, bytes: PATH_MAX (limits.h), its NUL included.
constexpr std::size_t kLongestJournalPath = 4096;

struct Journal {
  std::vector<JournalEntry> entries;
  std::uint64_t bad_lines = 0;  ///< lines that belong to no entry that can be believed
  std::uint64_t bytes = 0;      ///< read of the stream; what follows is at its next reading
  bool is_whole = true;         ///< nothing follows
};

/// True if the entry's CRC is that of its path. Any other entry was torn, damaged or forged
/// by means of a file name, and must be ignored.
bool is_believable(const JournalEntry& entry);

/// Reads lines "00" + 8 digits of send time + 8 of the low id half + "0000" + 8 of the
/// path CRC (upper-case hexadecimal), a space, the path. A path may hold line feeds: as
/// long as its CRC does not agree, the lines that follow continue it, up to
/// kLongestJournalPath bytes, even where one of them looks like an entry. If it never
/// agrees, its first line is a bad one and the next line is looked at afresh. Takes
/// memory for the entries and a few lines only, and time that grows with the bytes read,
/// whatever they are. Stops after `most` lines of this kind or of the other, each with
/// those that continue it.
Journal read_journal(std::istream& in, std::size_t most = SIZE_MAX);
