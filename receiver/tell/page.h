// receiver/tell/page.h: what came and what did not, as one HTML page that loads nothing.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "receiver/base/record.h"
#include "receiver/tell/summary.h"

struct PageContent {
  std::vector<TransferRecord> transfers;  ///< oldest first
  JournalSummary journal;
  double now = 0;          ///< when the page was made, seconds since 1970
  std::string read_error;  ///< why there is less than the ledger holds; ""

  /// True if everything that is known of was delivered, as for print_report().
  bool is_whole() const;
};

/// Rows of a table, and byte ranges of a file, that a page shows at most. What is left
/// out is counted.
constexpr std::size_t kMostTransfers = 10'000;
constexpr std::size_t kMostTroubles = 1'000;
constexpr std::size_t kMostRanges = 40;

/// The page. Whatever comes off the wire stands in it as text, with control characters
/// and characters that turn the direction of writing escaped as printable() does.
std::string page_of(const PageContent& content);
