// receiver/journal.h: reads a sender's trash journal.
#pragma once

#include <cstdint>
#include <istream>
#include <vector>

#include "receiver/record.h"

struct Journal {
  std::vector<JournalEntry> entries;
  std::uint64_t bad_lines = 0;  ///< lines that no sender writes
};

/// Lines "00" + 8 digits of send time + 8 of the low id half + "0000" + 8 of the
/// path CRC (upper-case hexadecimal), a space, the path. A line that is none
/// continues the path of the entry before it (a path may hold a line feed), or is
/// a bad one if that path is whole by its CRC.
Journal read_journal(std::istream& in);
