#include "receiver/tell/not_arrived.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <set>
#include <tuple>

#include "receiver/base/byte_ranges.h"
#include "receiver/base/passes.h"
#include "receiver/tell/html.h"
#include "receiver/tell/page.h"

namespace {

/// Transfers that did not arrive, newest first, less those whose path was delivered when
/// it was sent again.
struct Troubles {
  std::vector<const TransferRecord*> rows;
  std::size_t made_good = 0;
};

using Path = std::tuple<std::uint32_t, std::uint32_t, std::string>;  // sender, CRC, path

Path path_key(const TransferRecord& record) {
  return {record.key.address, record.path_crc, path_of(record)};
}

Troubles troubles_of(const std::vector<TransferRecord>& transfers) {
  Troubles troubles;
  std::set<Path> delivered_later;
  for (auto record = transfers.rbegin(); record != transfers.rend(); ++record) {
    if (record->outcome == Outcome::kDelivered) {
      delivered_later.insert(path_key(*record));
    } else if (delivered_later.count(path_key(*record)) > 0) {
      ++troubles.made_good;
    } else {
      troubles.rows.push_back(&*record);
    }
  }
  return troubles;
}

std::string missing_details(const TransferRecord& record) {
  const ByteRanges ranges = missing_bytes(record);
  if (ranges.empty()) return "";
  const auto shown = static_cast<std::ptrdiff_t>(std::min(ranges.size(), kMostRanges));
  std::string text = "<details><summary>" +
                     plural(ranges.size(), "missing range", "missing ranges") + "</summary>bytes " +
                     ranges_text({ranges.begin(), ranges.begin() + shown});
  if (ranges.size() > kMostRanges) {
    text += " and " + plural(ranges.size() - kMostRanges, "more range", "more ranges");
  }
  return text + "</details>";
}

std::uint64_t missing_count(const TransferRecord& record) {
  std::uint64_t bytes = 0;
  for (const auto& [first, last] : missing_bytes(record)) bytes += last - first + 1;
  return bytes;
}

std::string trouble_row(const TransferRecord& record) {
  std::string text = bdi(path_of(record));
  if (!record.why.empty()) text += "<br>" + html_text(record.why);
  const std::vector<Pass> passes = passes_of(record);
  if (!passes.empty() && record.parts > 0) text += "<br>" + passes_text(record, passes);
  if (!record.delivered_to.empty()) text += "<br>kept as " + bdi(record.delivered_to);
  const std::uint64_t missing = missing_count(record);
  return "<tr>" + cell("t", local_time(record.first_packet)) +
         outcome_cell(outcome_name(record.outcome)) +
         cell("n", std::to_string(record.size), "size") +
         cell("n", missing > 0 ? std::to_string(missing) : "", "missing") +
         cell("p", text + missing_details(record)) + "\n";
}

/// The row of a file that the journal names and of which nothing came.
std::string lost_row(const JournalEntry& entry) {
  return "<tr>" + cell("t", local_time(entry.send_time)) + cell("lost", "never arrived") +
         cell("n", "") + cell("n", "") + cell("p", bdi(entry.path)) + "\n";
}

}  // namespace

std::string not_arrived(const std::vector<TransferRecord>& transfers,
                        const JournalSummary& journal) {
  const Troubles troubles = troubles_of(transfers);
  std::vector<const JournalEntry*> lost;
  for (const JournalMatch& match : journal.not_here) {
    if (!match.transfer) lost.push_back(&match.entry);
  }
  std::reverse(lost.begin(), lost.end());
  std::string text = "<h2 id=missing>What did not arrive</h2>\n";
  if (troubles.rows.empty() && lost.empty()) {
    text += "<p>Nothing is known to be missing.</p>\n";
  } else {
    text += table_of("class=rows", {"Time", "Outcome", "#Bytes", "#Missing", "File"});
    for (std::size_t i = 0; i < std::min(lost.size(), kMostTroubles); ++i) {
      text += lost_row(*lost[i]);
    }
    for (std::size_t i = 0; i < std::min(troubles.rows.size(), kMostTroubles); ++i) {
      text += trouble_row(*troubles.rows[i]);
    }
    text += kTableEnd + left_out(lost.size(), kMostTroubles) +
            left_out(troubles.rows.size(), kMostTroubles);
  }
  if (troubles.made_good > 0) {
    text += "<p>" + plural(troubles.made_good, "transfer", "transfers") +
            " failed, but the file was delivered when it was sent again.</p>\n";
  }
  return text + (journal.entries == 0
                     ? "<p class=soft>No trash journal of the sender has come yet: which files "
                       "never arrived is not known.</p>\n"
                     : "<p class=soft>Files sent after the last journal that came are not among "
                       "them.</p>\n");
}
