#include "receiver/tell/summary.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <ctime>
#include <utility>

#include "receiver/base/passes.h"
#include "receiver/ledger/journal.h"

namespace {

bool is_delivered(const JournalMatch& match) {
  return match.transfer && match.transfer->outcome == Outcome::kDelivered;
}

/// Takes out the entries that can't be believed, which an earlier version may have kept;
/// returns how many there were.
std::size_t drop_unbelievable(std::vector<JournalMatch>& matches) {
  const auto end = std::remove_if(matches.begin(), matches.end(), [](const JournalMatch& match) {
    return !is_believable(match.entry);
  });
  const auto dropped = static_cast<std::size_t>(matches.end() - end);
  matches.erase(end, matches.end());
  return dropped;
}

/// A path, and at which sender.
using Place = std::pair<std::uint32_t, std::string>;

Place place_of(const JournalEntry& entry) { return {entry.address, entry.path}; }

/// Where in the journals each path was last delivered.
std::map<Place, std::size_t> last_deliveries(const std::vector<JournalMatch>& matches) {
  std::map<Place, std::size_t> last;
  for (std::size_t i = 0; i < matches.size(); ++i) {
    if (is_delivered(matches[i])) last[place_of(matches[i].entry)] = i;
  }
  return last;
}

}  // namespace

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
  if (!record.proof.empty() && !record.asked_for.empty()) return record.asked_for;  // its true name
  const std::string path = record.folder.empty() ? record.name : record.folder + "/" + record.name;
  return path.substr(std::min(path.find_first_not_of('/'), path.size()));
}

FirstPass first_pass_of(const TransferRecord& record) {
  const std::vector<Pass> passes = passes_of(record);
  if (passes.empty() || !passes[0].ended || record.parts == 0) return {};
  return {record.parts, passes[0].lost};
}

void Totals::add(const TransferRecord& record) {
  ++outcomes[record.outcome];
  if (record.outcome == Outcome::kDelivered) {
    bytes += record.size;
    repaired += record.repaired > 0 ? 1 : 0;
    proved += record.proof.empty() ? 0 : 1;
    collided += record.collided ? 1 : 0;
  }
  const FirstPass pass = first_pass_of(record);
  first_pass_parts += pass.parts;
  first_pass_lost += pass.lost;
}

std::uint64_t Totals::of(Outcome outcome) const {
  const auto found = outcomes.find(outcome);
  return found == outcomes.end() ? 0 : found->second;
}

std::string Totals::text() const {
  std::string text;
  for (const Outcome outcome :
       {Outcome::kDelivered, Outcome::kIncomplete, Outcome::kRefused, Outcome::kReceiving}) {
    if (!text.empty()) text += ", ";
    text += std::to_string(of(outcome)) + " " + outcome_name(outcome);
  }
  const std::uint64_t waiting = of(Outcome::kWaiting);
  if (waiting > 0) text += ", " + std::to_string(waiting) + " whole and waiting for the disk";
  return text;
}

JournalSummary summary_of(std::vector<JournalMatch> matches) {
  JournalSummary summary;
  summary.dropped = drop_unbelievable(matches);
  summary.entries = matches.size();
  const std::map<Place, std::size_t> delivered = last_deliveries(matches);
  for (std::size_t i = 0; i < matches.size(); ++i) {
    const auto last = delivered.find(place_of(matches[i].entry));
    if (last != delivered.end() && last->second > i && !is_delivered(matches[i])) {
      ++summary.made_good;
      continue;
    }
    matches[i].transfer ? summary.totals.add(*matches[i].transfer) : void(++summary.lost);
    if (!is_delivered(matches[i])) summary.not_here.push_back(std::move(matches[i]));
  }
  return summary;
}
