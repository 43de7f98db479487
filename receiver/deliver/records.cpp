#include "receiver/deliver/records.h"

#include <iterator>
#include <utility>

namespace {

std::string path_key(const std::string& asked_for, const Origin& origin) {
  return std::to_string(origin.address) + " " + std::to_string(origin.path_crc) + " " + asked_for;
}

Origin origin_of(const TransferRecord& record) { return {record.key.address, record.path_crc}; }

}  // namespace

bool Records::save(const TransferRecord& record) {
  if (waiting_.empty() && write({&record})) return true;
  const bool settled = record.outcome != Outcome::kReceiving && record.outcome != Outcome::kWaiting;
  if (settled) keep(record);
  return false;
}

bool Records::save_all(const std::vector<TransferRecord>& records) {
  std::vector<const TransferRecord*> all;
  all.reserve(records.size());
  for (const TransferRecord& record : records) all.push_back(&record);
  return waiting_.empty() && write(all);
}

/// Some at a time: those that were written stay so.
void Records::catch_up() {
  constexpr std::size_t kAtOnce = 1000;
  while (!waiting_.empty()) {
    std::vector<const TransferRecord*> some;
    for (auto each = waiting_.begin(); each != waiting_.end() && some.size() < kAtOnce; ++each) {
      some.push_back(&*each);
    }
    if (!write(some)) return;
    for (std::size_t left = some.size(); left > 0; --left) forget(waiting_.begin());
  }
}

bool Records::write(const std::vector<const TransferRecord*>& records) {
  if (records.empty()) return true;
  const bool together = records.size() > 1;
  if (together) ledger_.begin();
  std::string error;
  for (auto each = records.begin(); error.empty() && each != records.end(); ++each) {
    error = ledger_.save(**each);
  }
  const std::string end = together ? ledger_.commit() : "";
  if (error.empty()) error = end;
  if (!error.empty()) note_failure(error);
  failing_ = failing_ && !error.empty();
  return error.empty();
}

void Records::note_failure(const std::string& error) {
  if (!std::exchange(failing_, true)) events_.warning("ledger: " + error);
}

void Records::keep(const TransferRecord& record) {
  forget_older(record);
  while (waiting_.size() >= most_) {
    if (lost_++ == 0) {
      events_.warning("ledger: too many records wait for it, the oldest are lost");
    }
    forget(waiting_.begin());
  }
  const auto kept = waiting_.insert(waiting_.end(), record);
  by_key_.emplace(record.key, kept);
  if (record.outcome != Outcome::kDelivered || record.lies_at.empty()) return;
  by_place_[record.lies_at] = kept;
  by_path_[path_key(record.asked_for, origin_of(record))] = kept;
}

void Records::forget_older(const TransferRecord& record) {
  const auto [first, last] = by_key_.equal_range(record.key);
  for (auto each = first; each != last; ++each) {
    if (header_print(*each->second) != header_print(record)) continue;
    return forget(each->second);  // there is no other
  }
}

void Records::forget(Waiting::iterator record) {
  const auto [first, last] = by_key_.equal_range(record->key);
  for (auto each = first; each != last; ++each) {
    if (each->second != record) continue;
    by_key_.erase(each);
    break;
  }
  for (auto* const index : {&by_place_, &by_path_}) {
    const std::string name =
        index == &by_place_ ? record->lies_at : path_key(record->asked_for, origin_of(*record));
    const auto found = index->find(name);
    if (found != index->end() && found->second == record) index->erase(found);
  }
  waiting_.erase(record);
}

std::optional<TransferRecord> Records::find(const TransferRecord& announced) {
  const auto [first, last] = by_key_.equal_range(announced.key);
  for (auto each = first; each != last; ++each) {
    if (header_print(*each->second) == header_print(announced)) return *each->second;
  }
  return ledger_.find(announced);
}

std::optional<Origin> Records::owner_of(const std::string& lies_at) {
  const auto found = by_place_.find(lies_at);
  return found != by_place_.end() ? origin_of(*found->second) : ledger_.owner_of(lies_at);
}

std::string Records::place_of(const std::string& asked_for, const Origin& origin) {
  const auto found = by_path_.find(path_key(asked_for, origin));
  return found != by_path_.end() ? found->second->lies_at : ledger_.place_of(asked_for, origin);
}

bool Records::were_certain() { return lost_ == 0 && ledger_.read_error().empty(); }
