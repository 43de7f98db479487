// How a seal bears on its file: it repairs it, proves it, or stands in for a header packet
// that never came. A seal's own transfer is never a file: it stays until its file is settled,
// and no record of it is kept.
#include <utility>
#include <vector>

#include "receiver/base/hex.h"
#include "receiver/receiver.h"
#include "wire/wire_format.h"

namespace {

constexpr double kQuiet = 1;  // s without news of a file or its seal, before it is examined

}  // namespace

void Receiver::take_seal(const HeaderPacket& header, const sockaddr_in& from) {
  const TransferKey key = key_of(header.id, from);
  if (Arrival* seal = arrivals_.find(key); seal != nullptr) {
    touch(key);
    if (!seal->take_header(header)) ++metrics_.contradicting;
    return;
  }
  if (settled_.has(key)) return;
  std::string why;
  const std::optional<TransferKey> file = seals_.take(header, key, now_, why);
  if (!why.empty()) return refuse_seal(header, from, why);
  if (!file) return;
  if (arrivals_.find(*file) == nullptr && !begin_sealed(*file, from)) {
    remember(announced(header, from));
    seals_.forget(*file);
    return;
  }
  Arrival* arrival = arrivals_.find(*file);
  if (!seals_.agrees(arrival->counts())) {
    seals_.forget(*file);
    return refuse_seal(header, from, "its file's header packet says something else");
  }
  arrival->note_seal(seals_.text_of(*file));
  arrivals_.update(*arrival);
  begin(&header, announced(header, from), {});
  note_news_of(*file);
  arrival = arrivals_.find(*file);
  if (arrival != nullptr && arrival->is_complete()) completed_.push_back(*file);
}

void Receiver::refuse_seal(const HeaderPacket& header, const sockaddr_in& from,
                           const std::string& why) {
  ++metrics_.seals_refused;
  settlement_.refuse(announced(header, from), "seal: " + why, now_);
}

/// Begins a file of which no header packet came. False if it is settled, or turned away.
bool Receiver::begin_sealed(const TransferKey& file, const sockaddr_in& from) {
  const HeaderPacket header = seals_.header_of(file);
  TransferRecord record = announced(header, from);
  record.key = file;
  if (settled_.has(file) || was_delivered_before(record)) {
    ++metrics_.seals_unneeded;
    return false;
  }
  const std::optional<SealedAs> sealed = seals_.sealed_as(file);
  record.name = sealed ? sealed->name : hex(file.id);
  record.folder = sealed ? sealed->folder : "";
  record.seal = seals_.text_of(file);
  begin(nullptr, std::move(record), {});
  return arrivals_.find(file) != nullptr;
}

/// True if the same transfer was delivered before, from any source. A transfer that somebody
/// plays back must not be delivered again.
bool Receiver::was_delivered_before(const TransferRecord& record) {
  return ledger_.was_delivered(record.key.id, record.send_time, record.path_crc);
}

/// A packet came for `key`, a file or a seal.
void Receiver::note_news_of(const TransferKey& key) {
  const std::optional<TransferKey> file = seals_.file_of(key);
  if (file || seals_.knows(key)) to_examine_[file.value_or(key)] = now_.monotonic;
}

void Receiver::examine_the_quiet(const Now& until) {
  std::vector<TransferKey> quiet;
  for (const auto& [file, since] : to_examine_) {
    if (until.monotonic - since > kQuiet) quiet.push_back(file);
  }
  for (const TransferKey& file : quiet) (void)settle_sealed(file);
}

/// Repairs the file with what there is of its seal, and settles it if that tells all.
/// False if it doesn't: more may come.
bool Receiver::settle_sealed(const TransferKey& file) {
  to_examine_.erase(file);
  Arrival* arrival = arrivals_.find(file);
  if (arrival == nullptr || !seals_.knows(file)) return false;
  const std::optional<TransferKey> key = seals_.seal_of(file);
  Arrival* seal = key ? arrivals_.find(*key) : nullptr;
  arrival->flush();
  if (seal != nullptr) seal->flush();
  const std::uint64_t repaired_before = arrival->counts().repaired;
  const Proof proof = seals_.examine(*arrival, seal, store_.parts());
  metrics_.repaired_parts += arrival->counts().repaired - repaired_before;
  arrivals_.update(*arrival);
  if (proof == Proof::kNone) return false;
  if (proof == Proof::kDiffers) {
    ++metrics_.seals_differing;
    give_up(*arrival, "its digest differs");
    return true;
  }
  if (arrival->counts().proof.empty()) {
    ++metrics_.seals_proved;
    arrival->note_proof(seals_.proof_text(file));
  }
  if (!seals_.are_required()) {
    settle_proved(*arrival, {});
  } else if (was_delivered_before(arrival->counts())) {
    ++metrics_.seals_unneeded;
    settlement_.refuse(arrival->record(), "played back: it was delivered before", now_);
    store_.parts().drop(file);
    remember(arrival->counts());
    close(file);
  } else {
    settle_proved(*arrival, seals_.sealed_as(file));
  }
  return true;
}

/// Drops the seal of a file that is settled. What still comes of it is ignored.
void Receiver::drop_seal(const TransferKey& file) {
  const std::optional<TransferKey> key = seals_.seal_of(file);
  seals_.forget(file);
  to_examine_.erase(file);
  if (key) drop_seal_transfer(*key);
}

void Receiver::drop_seal_transfer(const TransferKey& seal) {
  const Arrival* arrival = arrivals_.find(seal);
  if (arrival == nullptr) return;
  remember(arrival->counts());
  store_.parts().drop(seal);
  store_.parts().close(seal);
  arrivals_.erase(seal);
}
