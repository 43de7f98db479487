#include "receiver/report.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "receiver/byte_ranges.h"
#include "receiver/hex.h"
#include "receiver/ledger.h"
#include "receiver/passes.h"
#include "receiver/utf8.h"
#include "send/wire_format.h"

namespace {

using Json = nlohmann::ordered_json;

constexpr char kLost[] = "lost whole";

std::string local_time(double seconds) {
  constexpr double kLatest = 253402300799;  // the year 9999
  std::array<char, 32> text{};
  std::tm parts{};
  const bool tells = seconds >= 0 && seconds <= kLatest;
  const auto time = static_cast<std::time_t>(tells ? std::floor(seconds) : 0);
  if (!tells || localtime_r(&time, &parts) == nullptr) return "?";
  (void)std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts);
  return text.data();
}

std::string path_of(const TransferRecord& record) {
  const std::string path = record.folder.empty() ? record.name : record.folder + "/" + record.name;
  return path.substr(std::min(path.find_first_not_of('/'), path.size()));
}

/// How many came to which end, and how the line did in the first passes.
struct Totals {
  std::map<Outcome, std::uint64_t> outcomes;
  std::uint64_t bytes = 0;  ///< of delivered files
  std::uint64_t first_pass_parts = 0;
  std::uint64_t first_pass_lost = 0;

  std::uint64_t of(Outcome outcome) const {
    const auto found = outcomes.find(outcome);
    return found == outcomes.end() ? 0 : found->second;
  }

  /// "3 delivered, 1 incomplete, 0 refused, 0 receiving"
  std::string text() const {
    std::string text;
    for (const Outcome outcome :
         {Outcome::kDelivered, Outcome::kIncomplete, Outcome::kRefused, Outcome::kReceiving}) {
      if (!text.empty()) text += ", ";
      text += std::to_string(of(outcome)) + " " + outcome_name(outcome);
    }
    return text;
  }
};

void add(Totals& totals, const TransferRecord& record) {
  ++totals.outcomes[record.outcome];
  if (record.outcome == Outcome::kDelivered) totals.bytes += record.size;
  const std::vector<Pass> passes = passes_of(record);
  if (passes.empty() || !passes[0].ended || record.parts == 0) return;
  totals.first_pass_parts += record.parts;
  totals.first_pass_lost += passes[0].lost;
}

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

/// In ASCII, so that no control character gets through in a name.
void print_json(const Json& object, std::ostream& out) {
  out << object.dump(-1, ' ', true, Json::error_handler_t::replace) << "\n";
}

Json json_of(const TransferRecord& record) {
  return {{"id", hex(record.id)},
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
          {"delivered_to", record.delivered_to}};
}

std::uint64_t print_transfers(Ledger& ledger, const ReportOptions& options, std::ostream& out) {
  Totals totals;
  const std::vector<TransferRecord> records =
      ledger.all(options.incomplete ? std::optional<Outcome>(Outcome::kIncomplete) : std::nullopt);
  if (!options.json && !records.empty()) {
    print_row("first packet", "outcome", "bytes", "lost", "path", out);
  }
  for (const TransferRecord& record : records) {
    add(totals, record);
    options.json ? print_json(json_of(record), out) : print_transfer(record, out);
  }
  if (!options.json) {
    out << records.size() << (records.size() == 1 ? " transfer: " : " transfers: ") << totals.text()
        << "; " << totals.bytes << " bytes delivered";
    if (totals.first_pass_parts > 0) {
      out << "; first passes lost " << totals.first_pass_lost << " of " << totals.first_pass_parts
          << " parts, " << percent(totals.first_pass_lost, totals.first_pass_parts);
    }
    out << "\n";
  }
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

bool is_delivered(const JournalMatch& match) {
  return match.transfer && match.transfer->outcome == Outcome::kDelivered;
}

/// Where in the journals each path was last delivered.
std::map<std::string, std::size_t> last_deliveries(const std::vector<JournalMatch>& matches) {
  std::map<std::string, std::size_t> last;
  for (std::size_t i = 0; i < matches.size(); ++i) {
    if (is_delivered(matches[i])) last[matches[i].entry.path] = i;
  }
  return last;
}

std::uint64_t print_missing(Ledger& ledger, bool json, std::ostream& out) {
  const std::vector<JournalMatch> matches = ledger.match_journal();
  const std::map<std::string, std::size_t> delivered = last_deliveries(matches);
  Totals totals;
  std::uint64_t lost = 0;
  std::uint64_t made_good = 0;
  for (std::size_t i = 0; i < matches.size(); ++i) {
    const auto last = delivered.find(matches[i].entry.path);
    if (last != delivered.end() && last->second > i && !is_delivered(matches[i])) {
      ++made_good;
      continue;
    }
    matches[i].transfer ? add(totals, *matches[i].transfer) : void(++lost);
    if (!is_delivered(matches[i])) print_missing_path(matches[i], json, out);
  }
  if (json) {
    if (matches.empty()) print_json({{"journal_entries", 0}}, out);
  } else if (matches.empty()) {
    out << "No trash journal of the sender has come yet: which files were lost whole is not "
           "known.\n";
  } else {
    out << matches.size() << (matches.size() == 1 ? " file" : " files")
        << " in the journals: " << totals.text() << ", " << lost << " " << kLost;
    if (made_good > 0) out << ", " << made_good << " failed but delivered when sent again";
    out << "\nFiles sent after the last journal that came are not among them.\n";
  }
  return matches.size() - totals.of(Outcome::kDelivered) - made_good;
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
