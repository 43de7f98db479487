// How a transfer begins: what the receiver takes, and what it makes room for.
#include <deque>
#include <utility>

#include "receiver/receiver.h"

namespace {

constexpr char kTooMany[] = "given up for newer files (--max-transfers)";

bool is_open(const TransferRecord& record) {
  return record.outcome == Outcome::kReceiving || record.outcome == Outcome::kWaiting;
}

}  // namespace

/// `header` is null if no header packet came; `record` then takes its place.
void Receiver::begin(const HeaderPacket* header, TransferRecord record,
                     const std::optional<TransferRecord>& known) {
  const TransferKey key = record.key;
  if (const std::string why = reason_to_refuse(record); !why.empty()) {
    refuse(std::move(record), why);
    return;
  }
  if (!may_begin(record, known)) return;
  make_place(key.address);
  refused_.forget(key);
  store_.parts().drop(key);  // of an attempt that was given up
  Arrival& arrival = arrivals_.add(Arrival(std::move(record), store_.parts()));
  if (header != nullptr) (void)arrival.take_header(*header);  // agrees with itself
  touch(key);
  feed_from_stash(arrival);
  if (arrival.is_complete()) completed_.push_back(key);
}

std::string Receiver::reason_to_refuse(const TransferRecord& record) const {
  if (settings_.max_file_size != 0 && record.size > settings_.max_file_size) {
    return "larger than --max-file-size";
  }
  if (arrivals_.aside() >= settings_.max_transfers) {
    return "too many whole files wait for the disk (--max-transfers)";
  }
  if (!store_.has_room(record.size + std::min<std::uint64_t>(arrivals_.sums().promised, INT64_MAX)))
    return "not enough free disk space";
  return "";
}

/// Does not settle it: things may have changed when its next header packet comes. Counts
/// it once.
void Receiver::refuse(TransferRecord record, const std::string& why) {
  const std::uint64_t print = header_print(record);
  if (refused_.has(record.key, print)) return;
  refused_.add(record.key, print);
  settlement_.refuse(std::move(record), why, now_);
}

/// False as long as the ledger can't be told that the old attempt under this key is over. If
/// we were killed then, the next start would take the new attempt's bytes for the old one's.
bool Receiver::may_begin(TransferRecord record, const std::optional<TransferRecord>& known) {
  if (records_.is_behind(record.key)) records_.catch_up();
  record.missing = Ranges(1, record.parts).text();
  const bool may =
      !records_.is_behind(record.key) && (!known || !is_open(*known) || records_.save(record));
  if (!may) ++unwanted_parts_;
  return may;
}

/// Gives up the least promising transfer, not the newcomer. One address may not take the last
/// eighth of the places.
void Receiver::make_place(std::uint32_t address) {
  const std::size_t most = settings_.max_transfers;
  while (arrivals_.growing_from(address) >= most - most / 8 || arrivals_.growing() >= most) {
    const bool own = arrivals_.growing_from(address) >= most - most / 8;
    Arrival* victim = own ? arrivals_.most_silent_from(address) : arrivals_.most_silent();
    const TransferKey key = victim->key();
    victim->flush();
    if (victim->is_complete()) settle(*victim);
    victim = arrivals_.find(key);  // it may lack parts, or a seal
    if (victim != nullptr && !arrivals_.is_aside(key)) give_up(*victim, kTooMany);
  }
}

void Receiver::feed_from_stash(Arrival& arrival) {
  const TransferKey key = arrival.key();
  const std::deque<Stash::Part> parts = stash_.take(key);
  for (const Stash::Part& part : parts) {
    const DataPacket packet{key.id, part.part_no, part.bytes.data(), part.bytes.size()};
    if (!arrival.take_part(packet)) ++metrics_.contradicting;
  }
  arrival.flush();  // before `parts` goes
}
