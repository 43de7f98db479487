#include "receiver/tell/report.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "receiver/base/byte_ranges.h"
#include "receiver/base/hex.h"
#include "receiver/base/passes.h"
#include "receiver/base/utf8.h"
#include "receiver/ledger/ledger.h"
#include "receiver/tell/summary.h"
#include "wire/wire_format.h"

namespace {

using Json = nlohmann::ordered_json;

constexpr char kLost[] = "never arrived";

bool ends_with(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

void print_row(const std::string& time, const std::string& outcome, const std::string& size,
               const std::string& lost, const std::string& path, std::ostream& out) {
  std::array<char, 96> text{};
  (void)std::snprintf(text.data(), text.size(), "%-19s  %-10s  %13s  %7s  ", time.c_str(),
                      outcome.c_str(), size.c_str(), lost.c_str());
  out << text.data() << path << "\n";
}

void print_details(const TransferRecord& record, const std::vector<Pass>& passes,
                   std::ostream& out) {
  constexpr char kIndent[] = "    ";
  const bool plain =
      passes.size() == 1 && passes[0].fresh == record.parts && passes[0].repeated == 0;
  if (!plain && !passes.empty() && record.parts > 0) {
    out << kIndent << passes_text(record, passes) << "\n";
  }
  const std::string missing = ranges_text(missing_bytes(record));
  if (!missing.empty()) out << kIndent << "missing bytes " << missing << "\n";
  if (record.differing > 0) {
    out << kIndent << record.differing << " repeated parts came with other bytes than before\n";
  }
  if (!record.why.empty()) out << kIndent << printable(record.why) << "\n";
  if (record.repaired > 0) out << kIndent << record.repaired << " lost parts repaired\n";
  if (!record.proof.empty()) out << kIndent << "proved: " << record.proof << "\n";
  if (record.collided) out << kIndent << "its name was taken by a file of another path\n";
  if (!record.delivered_to.empty() && !ends_with(record.delivered_to, "/" + path_of(record))) {
    out << kIndent << "kept as " << printable(record.delivered_to) << "\n";
  }
}

void print_transfer(const TransferRecord& record, std::ostream& out) {
  const std::vector<Pass> passes = passes_of(record);
  const bool told = !passes.empty() && passes[0].ended && record.parts > 0;
  print_row(local_time(record.first_packet), outcome_name(record.outcome),
            std::to_string(record.size), told ? percent(passes[0].lost, record.parts) : "-",
            printable(path_of(record)) +
                (record.file_kind == kKindTrashJournal ? "  (trash journal)" : ""),
            out);
  print_details(record, passes, out);
}

/// Writes ASCII only: no control character of a name gets through.
void print_json(const Json& object, std::ostream& out) {
  out << object.dump(-1, ' ', true, Json::error_handler_t::replace) << "\n";
}

Json json_of(const TransferRecord& record) {
  return {{"id", hex(record.key.id)},
          {"outcome", outcome_name(record.outcome)},
          {"why", record.why},
          {"name", record.name},
          {"folder", record.folder},
          {"size", record.size},
          {"file_kind", record.file_kind},
          {"send_time", record.send_time},
          {"path_crc", hex(record.path_crc, 8)},
          {"source", record.source},
          {"first_packet", record.first_packet},
          {"last_packet", record.last_packet},
          {"udata_size", record.udata_size},
          {"parts", record.parts},
          {"received", record.received},
          {"repeated", record.repeated},
          {"differing", record.differing},
          {"received_per_pass", record.received_per_pass},
          {"repeated_per_pass", record.repeated_per_pass},
          {"missing_bytes", missing_bytes(record)},
          {"delivered_to", record.delivered_to},
          {"asked_for", record.asked_for},
          {"lies_at", record.lies_at},
          {"collided", record.collided},
          {"repaired", record.repaired},
          {"proof", record.proof}};
}

/// Those without a record, too.
void print_refusals(const Refusals& refusals, bool json, std::ostream& out) {
  std::uint64_t sum = 0;
  for (const auto& [why, count] : refusals) sum += count;
  if (sum == 0) return;
  if (json) return print_json({{"turned_away", sum}, {"by_reason", refusals}}, out);
  out << sum << " turned away, with a record or without:\n";
  for (const auto& [why, count] : refusals)
    out << "    " << count << "  " << printable(why) << "\n";
}

std::uint64_t print_transfers(Ledger& ledger, const ReportOptions& options, std::ostream& out) {
  Totals totals;
  const std::vector<TransferRecord> records =
      ledger.all(options.incomplete ? std::optional<Outcome>(Outcome::kIncomplete) : std::nullopt);
  if (!options.json && !records.empty()) {
    print_row("first packet", "outcome", "bytes", "lost", "path", out);
  }
  for (const TransferRecord& record : records) {
    totals.add(record);
    options.json ? print_json(json_of(record), out) : print_transfer(record, out);
  }
  if (!options.json) {
    out << records.size() << (records.size() == 1 ? " transfer: " : " transfers: ") << totals.text()
        << "; " << totals.bytes << " bytes delivered";
    if (totals.collided > 0) {
      out << "; " << totals.collided << (totals.collided == 1 ? " name" : " names") << " collided";
    }
    if (totals.proved > 0) {
      out << "; " << totals.repaired << " repaired, " << totals.proved << " proved, "
          << totals.of(Outcome::kDelivered) - totals.proved << " unproved";
    }
    if (totals.first_pass_parts > 0) {
      out << "; first passes lost " << totals.first_pass_lost << " of " << totals.first_pass_parts
          << " parts, " << percent(totals.first_pass_lost, totals.first_pass_parts);
    }
    out << "\n";
  }
  if (!options.incomplete) print_refusals(ledger.refusals(), options.json, out);
  return records.size() - totals.of(Outcome::kDelivered);
}

/// " (missing bytes 0-1379; why)"; "" if nothing is known.
std::string reason(const TransferRecord& record) {
  const std::string ranges = ranges_text(missing_bytes(record));
  std::string text = ranges.empty() ? "" : "missing bytes " + ranges;
  if (!record.why.empty()) text += (text.empty() ? "" : "; ") + printable(record.why);
  return text.empty() ? "" : " (" + text + ")";
}

void print_missing_path(const JournalMatch& match, bool json, std::ostream& out) {
  const bool lost = !match.transfer;
  const std::string outcome = lost ? kLost : outcome_name(match.transfer->outcome);
  if (!json) {
    out << outcome << ": " << printable(match.entry.path) << (lost ? "" : reason(*match.transfer))
        << "\n";
    return;
  }
  Json object = {{"path", match.entry.path},
                 {"outcome", outcome},
                 {"send_time", match.entry.send_time},
                 {"id_low", hex(match.entry.id_low, 8)},
                 {"path_crc", hex(match.entry.path_crc, 8)}};
  if (!lost) object["transfer"] = json_of(*match.transfer);
  print_json(object, out);
}

std::uint64_t print_missing(Ledger& ledger, bool json, std::ostream& out) {
  const JournalSummary journal = summary_of(ledger.match_journal());
  for (const JournalMatch& match : journal.not_here) print_missing_path(match, json, out);
  if (json) {
    if (journal.entries == 0) print_json({{"journal_entries", 0}}, out);
    if (journal.dropped > 0) print_json({{"unbelievable_entries", journal.dropped}}, out);
  } else if (journal.entries == 0) {
    out << "No trash journal of the sender has come yet: which files never arrived is not "
           "known.\n";
  } else {
    out << journal.entries << (journal.entries == 1 ? " file" : " files")
        << " in the journals: " << journal.totals.text() << ", " << journal.lost << " " << kLost;
    if (journal.made_good > 0) {
      out << ", " << journal.made_good << " failed but delivered when sent again";
    }
    out << "\nFiles sent after the last journal that came are not among them.\n";
  }
  if (!json && journal.dropped > 0) {
    out << journal.dropped << (journal.dropped == 1 ? " entry" : " entries")
        << " whose CRC is not that of the path left out.\n";
  }
  return journal.count();
}

}  // namespace

std::uint64_t print_report(Ledger& ledger, const ReportOptions& options, std::ostream& out) {
  const std::uint64_t count = options.missing ? print_missing(ledger, options.json, out)
                                              : print_transfers(ledger, options, out);
  const std::string error = ledger.read_error();
  if (error.empty()) return count;
  options.json ? print_json({{"error", error}}, out) : void(out << printable(error) << "\n");
  return std::max<std::uint64_t>(count, 1);
}
