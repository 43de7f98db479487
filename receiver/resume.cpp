// What an earlier run left, and what the next start does with it:
//
// - Bytes of a transfer without a record: they came in the run's last second. Deleted, and
//   begun anew by the next header packet.
// - A record of a transfer that is under way or waits, and its bytes: it goes on. What came
//   after the record was saved comes again, or is missing.
// - Such a record and no bytes: nothing had come yet, and it goes on. Or its part is gone,
//   since the run was killed while delivering or giving up. `why` tells which: it is empty
//   for a file that was being delivered.
#include <algorithm>
#include <iterator>
#include <utility>

#include "receiver/deliver/boot.h"
#include "receiver/receiver.h"

namespace {

/// An empty file has no bytes to lose: to deliver it once more does no harm.
bool is_missing_nothing_of(const TransferRecord& record) {
  return record.why.empty() ? record.received == 0 && record.parts > 0
                            : record.outcome == Outcome::kWaiting && record.parts == 0;
}

}  // namespace

void Receiver::resume(const Now& now) {
  now_ = now;
  const bool same_boot = is_same_boot(store_.hidden_folder());
  std::vector<TransferKey> found = store_.parts().left();
  std::unordered_map<TransferKey, bool> left;  // with: does a record want it?
  for (const TransferKey& key : found) left[key] = false;
  std::vector<TransferRecord> unfinished = ledger_.all(Outcome::kReceiving);
  for (TransferRecord& record : ledger_.all(Outcome::kWaiting)) {
    unfinished.push_back(std::move(record));
  }
  const bool readable = ledger_is_readable();
  // the order in which they became complete, or will be given up
  std::stable_sort(unfinished.begin(), unfinished.end(),
                   [](const auto& a, const auto& b) { return a.last_packet < b.last_packet; });
  for (TransferRecord& record : unfinished) {
    const auto part = left.find(record.key);
    if (part != left.end() && std::exchange(part->second, true)) {
      close_unfinished(std::move(record), false);  // two of one key: the bytes are the first's
      continue;
    }
    const bool has_part = part != left.end() || store_.parts().adopt(record.key);
    const bool is_safe = same_boot || record.outcome == Outcome::kWaiting;  // it was synced
    if (is_safe && (has_part || is_missing_nothing_of(record))) {
      resume_one(std::move(record), now);
      continue;
    }
    store_.parts().drop(record.key);
    close_unfinished(std::move(record), has_part);
  }
  if (!readable) return;  // what it does not tell of may still be wanted
  for (const auto& [key, wanted] : left) {
    if (!wanted) store_.parts().drop(key);
  }
  note_boot(store_.hidden_folder());  // last: a kill before must not make old bytes good
}

/// False if it could not be read to its end. The first time in a run this is warned of.
bool Receiver::ledger_is_readable() {
  const std::string error = ledger_.read_error();
  if (!error.empty() && !std::exchange(damage_told_, true)) events_.warning("ledger: " + error);
  return error.empty();
}

void Receiver::close_unfinished(TransferRecord record, bool has_part) {
  const bool given_up = !has_part && !record.why.empty() && record.outcome != Outcome::kWaiting;
  const bool delivered = !has_part && !given_up && record.missing.empty();
  if (!delivered && !given_up) {
    record.why = has_part ? "the machine was restarted" : "its bytes are gone";
    record.missing = Ranges(1, record.parts).text();
  }
  record.outcome = delivered ? Outcome::kDelivered : Outcome::kIncomplete;
  if (delivered) record.why.clear();
  if (delivered && !record.lies_at.empty()) record.delivered_to = store_.path_to(record.lies_at);
  (void)records_.save(record);  // or it waits
  if (delivered) return;
  ++metrics_.incomplete;
  events_.incomplete(record);
}

void Receiver::resume_one(TransferRecord record, const Now& now) {
  const TransferKey key = record.key;
  if (record.outcome == Outcome::kReceiving) record.why.clear();  // giving up came to no end
  const double silent_for = std::max(0.0, now.real - record.last_packet);
  if (arrivals_.find(key) != nullptr) return;  // two of which nothing came
  if (!record.seal.empty()) seals_.resume(key, record.seal);
  Arrival& arrival = arrivals_.add(Arrival::resumed(std::move(record), store_.parts()));
  arrival.seen_before(now.monotonic - silent_for);
  if (arrival.is_complete()) settle(arrival);
}
