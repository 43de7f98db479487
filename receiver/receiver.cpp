#include "receiver/receiver.h"

#include <arpa/inet.h>

#include <algorithm>
#include <utility>
#include <variant>

#include "wire/wire_format.h"

namespace {

constexpr double kSaveInterval = 1.0;      // s
constexpr std::size_t kMostSaved = 2'000;  // records in one go: the batches wait for it
constexpr double kMetricsInterval = 5.0;   // s

constexpr char kContested[] =
    "two files came at once under its id, and which part is whose can't be told";

}  // namespace

Receiver::Receiver(ReceiverSettings settings, Store& store, Ledger& ledger, Events& events,
                   const Now& now)
    : settings_(std::move(settings)),
      store_(store),
      ledger_(ledger),
      events_(events),
      metrics_file_(settings_.metrics),
      records_(ledger, events),
      settlement_(store, records_, ledger, events, metrics_, settings_.drop_incomplete),
      stash_(settings_.stash),
      seals_(settings_.seals),
      now_(now),
      notices_(events, settings_.silence, now.monotonic) {}

// Packets in.

void Receiver::take(const unsigned char* bytes, std::size_t size, const sockaddr_in& from,
                    const Now& came) {
  now_ = came;
  ++metrics_.datagrams;
  metrics_.bytes += size;
  if (!is_allowed(from)) {
    ++metrics_.not_allowed;
    return;
  }
  const std::uint64_t source = source_of(from);
  link_loss_.datagram(source);
  const Datagram datagram = parse_datagram(bytes, size);
  if (const auto* part = std::get_if<DataPacket>(&datagram)) {
    take_part(*part, from);
  } else if (const auto* header = std::get_if<HeaderPacket>(&datagram)) {
    take_header(*header, from);
  } else if (const auto* service = std::get_if<ServicePacket>(&datagram)) {
    link_loss_.service(source, service->all_send_cnt, now_.monotonic);
  } else {
    ++metrics_.malformed;
  }
}

bool Receiver::is_allowed(const sockaddr_in& from) const {
  const std::uint32_t address = ntohl(from.sin_addr.s_addr);
  const auto holds = [=](const Network& n) { return (address & n.mask) == n.address; };
  return settings_.allow.empty() ||
         std::any_of(settings_.allow.begin(), settings_.allow.end(), holds);
}

/// A sender for its counter; with --ignore-source its port may change.
std::uint64_t Receiver::source_of(const sockaddr_in& from) const {
  const std::uint64_t address = ntohl(from.sin_addr.s_addr);
  return address << 16 | (settings_.ignore_source ? 0 : ntohs(from.sin_port));
}

TransferKey Receiver::key_of(std::uint64_t id, const sockaddr_in& from) const {
  return transfer_key(id, from, settings_.ignore_source);
}

void Receiver::take_part(const DataPacket& packet, const sockaddr_in& from) {
  const TransferKey key = key_of(packet.id, from);
  if (Arrival* arrival = arrivals_.find(key); arrival != nullptr) {
    const bool was_complete = arrival->is_complete();
    touch(key);
    if (!arrival->take_part(packet)) ++metrics_.contradicting;
    if (!was_complete && arrival->is_complete()) completed_.push_back(key);
  } else if (contested_.hear(key, now_.monotonic)) {
    ++metrics_.contradicting;
  } else if (settled_.has(key)) {
    ++ignored_parts_;
  } else if (refused_.has(key)) {
    ++unwanted_parts_;
  } else {
    stash_.put(key, packet, now_.monotonic);
  }
}

void Receiver::touch(const TransferKey& key) {
  if (touched_.empty() || touched_.back() != key) touched_.push_back(key);
}

TransferRecord Receiver::announced(const HeaderPacket& header, const sockaddr_in& from) const {
  return begin_record(header, key_of(header.id, from), settings_.charset,
                      source_text(ntohl(from.sin_addr.s_addr), ntohs(from.sin_port)), now_.real);
}

void Receiver::take_header(const HeaderPacket& header, const sockaddr_in& from) {
  if (header.file_kind == kKindSeal) return take_seal(header, from);
  const TransferKey key = key_of(header.id, from);
  if (Arrival* arrival = arrivals_.find(key); arrival != nullptr) {
    touch(key);
    if (arrival->take_header(header)) return;
    if (arrival->is_complete()) settle(*arrival);  // its end; what follows is another file
    arrival = arrivals_.find(key);
    if (arrival != nullptr) return contest(*arrival, announced(header, from));
  }
  TransferRecord record = announced(header, from);
  if (settled_.has(key, header_print(record))) return;
  const std::optional<TransferRecord> known = records_.find(record);
  (void)ledger_is_readable();
  if (known && known->outcome == Outcome::kDelivered) {
    remember(record);
  } else if (!contested_.hear(key, now_.monotonic)) {
    begin(&header, std::move(record), known);
  } else {
    ++metrics_.contradicting;
    if (!known) settlement_.lose(std::move(record), kContested, now_);
  }
}

/// Whose part a part is can't be told any more, and what is mixed up must not be
/// delivered. Neither is, until nothing more comes under the key for a while; what comes
/// of either then is received anew. One that is whole is not mixed up: it only waits.
void Receiver::contest(Arrival& arrival, TransferRecord other) {
  ++metrics_.contradicting;
  if (arrival.is_complete()) return;
  contested_.add(arrival.key(), now_.monotonic);
  arrival.flush();
  give_up(arrival, kContested);
  settlement_.lose(std::move(other), kContested, now_);
}

void Receiver::end_batch() {
  notices_.heard(now_.monotonic);
  metrics_.last_datagram = now_.real;
  for (const TransferKey& key : std::exchange(touched_, {})) {
    Arrival* arrival = arrivals_.find(key);
    if (arrival == nullptr) continue;
    const bool was_complete = arrival->is_complete();
    arrival->flush();
    if (!was_complete && arrival->is_complete()) completed_.push_back(key);
    arrivals_.note_packet(*arrival, now_);
    note_news_of(key);
    if (arrival->write_error() != 0) notices_.unwritten(arrival->write_error());
    latest_ = key;
  }
  for (const TransferKey& key : std::exchange(completed_, {})) {
    Arrival* arrival = arrivals_.find(key);
    const bool is_due = arrival != nullptr && arrival->is_complete() && !arrivals_.is_aside(key);
    if (is_due) settle(*arrival);
  }
}

// By time.

void Receiver::tick(const Now& now, const Now& until, const IntakeCounts& intake) {
  now_ = now;
  try_again();
  examine_the_quiet(until);
  give_up_the_silent(until.monotonic);
  stash_.expire(until.monotonic, settings_.give_up);
  contested_.expire(until.monotonic, settings_.give_up);
  events_.flush();
  notices_.notice_silence(until.monotonic);
  notices_.notice_drops(intake);
  notices_.notice_unwritten(arrivals_.sums().failed, now.monotonic);
  notices_.show_progress(arrivals_.find(latest_), metrics_.bytes, now.monotonic);
  records_.catch_up();
  if (now.monotonic >= next_save_) {
    save_progress(kMostSaved);
    if (!arrivals_.has_changes()) next_save_ = now.monotonic + kSaveInterval;
  }
  if (now.monotonic >= next_metrics_) {
    next_metrics_ = now.monotonic + kMetricsInterval;
    update_metrics(intake);
  }
}

void Receiver::save_progress(std::size_t most) {
  if (const std::string mended = ledger_.mend(); !mended.empty()) {
    events_.warning("ledger: " + mended);
    arrivals_.all_changed();
  }
  settlement_.save_refusals(now_.real);
  std::vector<TransferRecord> changed = arrivals_.changed(most);
  const auto is_seal = [](const TransferRecord& r) { return r.file_kind == kKindSeal; };
  changed.erase(std::remove_if(changed.begin(), changed.end(), is_seal), changed.end());
  if (!records_.save_all(changed)) arrivals_.not_saved(changed);
}

void Receiver::end(const IntakeCounts& intake) {
  records_.catch_up();
  if (records_.waiting() > 0) {
    events_.warning("ledger: it can't be written, so it lacks " +
                    std::to_string(records_.waiting()) + " of the files and refusals told above");
  }
  save_progress(SIZE_MAX);
  update_metrics(intake);
}

void Receiver::tell_state(const IntakeCounts& intake) {
  update_metrics(intake);
  events_.state(metrics_);
}

void Receiver::update_metrics(const IntakeCounts& intake) {
  const ArrivalSums& sums = arrivals_.sums();
  metrics_.repeated_parts = sums.repeated + ignored_parts_;
  metrics_.differing_parts = sums.differing;
  metrics_.missing_parts = sums.missing;
  metrics_.unwritten_parts = sums.failed;
  metrics_.open_transfers = arrivals_.growing();
  metrics_.waiting_files = arrivals_.aside();
  metrics_.waiting_records = records_.waiting();
  metrics_.forgotten_parts = stash_.forgotten() + unwanted_parts_;
  metrics_.kernel_drops = intake.kernel_drops;
  metrics_.memory = intake.memory;
  metrics_.memory_dropped_datagrams = intake.dropped_datagrams;
  metrics_.memory_dropped_transfers = intake.dropped_transfers;
  metrics_.link_sent = link_loss_.sent();
  metrics_.link_lost = link_loss_.lost();
  const std::string error = metrics_file_.write(metrics_);
  if (!error.empty()) events_.warning(error);
}
