// receiver/tell/summary.h: what the report and the page count over many transfers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "receiver/base/record.h"

/// "2026-11-23 08:32:45" in the local time zone, of seconds since 1970; "?" before that
/// or behind the year 9999.
std::string local_time(double seconds);

/// Folder and name as the header packet has them, without a "/" in front.
std::string path_of(const TransferRecord& record);

/// How many transfers came to which end, and how the line did in the first passes.
struct Totals {
  std::map<Outcome, std::uint64_t> outcomes;
  std::uint64_t bytes = 0;     ///< of delivered files
  std::uint64_t repaired = 0;  ///< delivered files with parts rebuilt out of a seal
  std::uint64_t proved = 0;    ///< delivered files whose digest agrees with a seal's
  std::uint64_t collided = 0;  ///< numbered for the sake of another path's file
  std::uint64_t first_pass_parts = 0;
  std::uint64_t first_pass_lost = 0;

  void add(const TransferRecord& record);
  std::uint64_t of(Outcome outcome) const;

  /// "3 delivered, 1 incomplete, 0 refused, 0 receiving"
  std::string text() const;
};

/// Parts and losses of one transfer's first pass; both are 0 if they are unknown.
struct FirstPass {
  std::uint64_t parts = 0;
  std::uint64_t lost = 0;
};
FirstPass first_pass_of(const TransferRecord& record);

/// What the sender's journals say, held against the transfers.
struct JournalSummary {
  std::vector<JournalMatch> not_here;  ///< not delivered, then or later; in the journal's order
  Totals totals;                       ///< of the transfers that the entries belong to
  std::uint64_t entries = 0;
  std::uint64_t lost = 0;       ///< of these, nothing ever came
  std::uint64_t made_good = 0;  ///< failed, but the path was sent again and delivered then
  std::size_t dropped = 0;      ///< further entries: their CRC is not that of the path

  /// Files of the journals that are not here.
  std::uint64_t count() const { return not_here.size(); }
};
JournalSummary summary_of(std::vector<JournalMatch> matches);
