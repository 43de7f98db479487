#include "receiver/assemble/arrivals.h"

#include <algorithm>
#include <iterator>

#include "wire/wire_format.h"

namespace {

ArrivalSums sums_of(const Arrival& arrival) {
  const TransferRecord& counts = arrival.counts();
  const std::uint64_t missing = counts.parts - counts.received;
  return {missing, counts.repeated, counts.differing, arrival.failed_parts(),
          std::min(missing, counts.received) * part_size(counts.udata_size)};
}

}  // namespace

Arrival* Arrivals::find(const TransferKey& key) {
  const auto found = places_.find(key);
  return found == places_.end() ? nullptr : &found->second->arrival;
}

Arrival& Arrivals::add(Arrival arrival) {
  const TransferKey key = arrival.key();
  growing_.push_back({std::move(arrival), {}, false, false, 0, {}});
  Entry& entry = growing_.back();
  places_[key] = std::prev(growing_.end());
  join_address(entry);
  mark_unsaved(entry);
  update(entry.arrival);
  return entry.arrival;
}

void Arrivals::erase(const TransferKey& key) {
  const auto found = places_.find(key);
  if (found == places_.end()) return;
  Entry& entry = *found->second;
  update(entry.arrival);
  sums_.missing -= entry.counted.missing;
  sums_.promised -= entry.counted.promised;
  leave_address(entry);
  (entry.aside ? aside_ : growing_).erase(found->second);
  places_.erase(found);
}

void Arrivals::note_packet(Arrival& arrival, const Now& now) {
  const auto at = places_.at(arrival.key());
  arrival.seen(now);
  update(arrival);
  mark_unsaved(*at);
  if (at->aside && arrival.is_complete()) return;
  leave_address(*at);
  growing_.splice(growing_.end(), at->aside ? aside_ : growing_, at);
  at->aside = false;
  join_address(*at);
}

void Arrivals::update(const Arrival& arrival) {
  ArrivalSums& counted = places_.at(arrival.key())->counted;
  const ArrivalSums now = sums_of(arrival);
  for (const auto sum : {&ArrivalSums::missing, &ArrivalSums::repeated, &ArrivalSums::differing,
                         &ArrivalSums::failed, &ArrivalSums::promised}) {
    sums_.*sum += now.*sum - counted.*sum;  // modulo 2^64 where it shrinks
  }
  counted = now;
}

std::size_t Arrivals::growing_from(std::uint32_t address) const {
  const auto found = by_address_.find(address);
  return found == by_address_.end() ? 0 : found->second.size();
}

Arrival* Arrivals::most_silent_from(std::uint32_t address) {
  const auto found = by_address_.find(address);
  return found == by_address_.end() ? nullptr : find(found->second.front());
}

void Arrivals::set_aside(Arrival& arrival, double due) {
  const auto at = places_.at(arrival.key());
  leave_address(*at);
  aside_.splice(aside_.end(), at->aside ? aside_ : growing_, at);
  at->aside = true;
  at->due = due;
}

bool Arrivals::is_aside(const TransferKey& key) const {
  const auto found = places_.find(key);
  return found != places_.end() && found->second->aside;
}

Arrival* Arrivals::due(double now) {
  return aside_.empty() || aside_.front().due > now ? nullptr : &aside_.front().arrival;
}

std::vector<TransferRecord> Arrivals::changed(std::size_t most) {
  std::vector<TransferRecord> records;
  while (!unsaved_.empty() && records.size() < most) {
    const auto found = places_.find(unsaved_.front());
    unsaved_.pop_front();
    if (found == places_.end() || !std::exchange(found->second->unsaved, false)) continue;
    const Arrival& arrival = found->second->arrival;
    if (arrival.counts().received > 0 || arrival.is_complete()) records.push_back(arrival.record());
  }
  return records;
}

void Arrivals::not_saved(const std::vector<TransferRecord>& records) {
  for (const TransferRecord& record : records) {
    const auto found = places_.find(record.key);
    if (found != places_.end()) mark_unsaved(*found->second);
  }
}

void Arrivals::all_changed() {
  for (const auto& [key, place] : places_) mark_unsaved(*place);
}

void Arrivals::mark_unsaved(Entry& entry) {
  if (!std::exchange(entry.unsaved, true)) unsaved_.push_back(entry.arrival.key());
}

void Arrivals::leave_address(Entry& entry) {
  if (entry.aside) return;
  const auto found = by_address_.find(entry.arrival.key().address);
  found->second.erase(entry.of_address);
  if (found->second.empty()) by_address_.erase(found);
}

void Arrivals::join_address(Entry& entry) {
  OfAddress& all = by_address_[entry.arrival.key().address];
  entry.of_address = all.insert(all.end(), entry.arrival.key());
}
