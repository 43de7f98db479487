#include "receiver/receiver.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <optional>
#include <utility>
#include <variant>
#include <vector>

#include "receiver/boot.h"
#include "receiver/ranges.h"
#include "send/wire_format.h"

namespace {

constexpr double kSaveInterval = 1.0;     // s
constexpr double kMetricsInterval = 5.0;  // s

double clock_seconds(clockid_t clock) {
  std::timespec now{};
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

std::string source_text(const sockaddr_in& from) {
  char address[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &from.sin_addr, address, sizeof address);
  return std::string(address) + ":" + std::to_string(ntohs(from.sin_port));
}

}  // namespace

Receiver::Receiver(const Options& options, Store& store, Ledger& ledger, Events& events)
    : options_(options),
      store_(store),
      ledger_(ledger),
      events_(events),
      settlement_(store, ledger, events, metrics_, options.drop_incomplete),
      notices_(events, options.silence, clock_seconds(CLOCK_MONOTONIC)) {
  look_at_clocks();
}

void Receiver::look_at_clocks() {
  now_ = clock_seconds(CLOCK_MONOTONIC);
  real_ = clock_seconds(CLOCK_REALTIME);
  stash_.set_time(now_);
}

// Packets in.

void Receiver::take(const unsigned char* bytes, std::size_t size, const sockaddr_in& from) {
  ++metrics_.datagrams;
  metrics_.bytes += size;
  if (!is_allowed(from)) {
    ++metrics_.not_allowed;
    return;
  }
  link_loss_.datagram(from.sin_addr.s_addr);
  const Datagram datagram = parse_datagram(bytes, size);
  if (const auto* part = std::get_if<DataPacket>(&datagram)) {
    take_part(*part);
  } else if (const auto* header = std::get_if<HeaderPacket>(&datagram)) {
    take_header(*header, from);
  } else if (const auto* service = std::get_if<ServicePacket>(&datagram)) {
    link_loss_.service(from.sin_addr.s_addr, service->all_send_cnt);
  } else {
    ++metrics_.malformed;
  }
}

bool Receiver::is_allowed(const sockaddr_in& from) const {
  const std::uint32_t address = ntohl(from.sin_addr.s_addr);
  const auto holds = [=](const Network& n) { return (address & n.mask) == n.address; };
  return options_.allow.empty() || std::any_of(options_.allow.begin(), options_.allow.end(), holds);
}

void Receiver::take_part(const DataPacket& packet) {
  const auto found = transfers_.find(packet.id);
  if (found == transfers_.end()) {
    if (settled_.has(packet.id)) {
      ++closed_repeated_;
    } else {
      stash_.put(packet);
    }
    return;
  }
  touch(packet.id);
  if (!found->second.take_part(packet)) ++metrics_.contradicting;
}

/// Twice is no harm, but the order counts: of two files with one name the later one
/// must replace the earlier.
void Receiver::touch(std::uint64_t id) {
  if (touched_.empty() || touched_.back() != id) touched_.push_back(id);
}

void Receiver::take_header(const HeaderPacket& header, const sockaddr_in& from) {
  if (const auto found = transfers_.find(header.id); found != transfers_.end()) {
    touch(header.id);
    if (!found->second.take_header(header)) ++metrics_.contradicting;
    return;
  }
  if (settled_.has(header.id)) return;
  const std::optional<TransferRecord> known = ledger_.find(header.id);
  (void)ledger_is_readable();
  if (known && (known->outcome == Outcome::kDelivered || known->outcome == Outcome::kRefused)) {
    remember(header.id);
    return;
  }
  begin(header, from);
}

void Receiver::begin(const HeaderPacket& header, const sockaddr_in& from) {
  TransferRecord record = begin_record(header, options_.charset, source_text(from), real_);
  if (const std::string why = reason_to_refuse(header); !why.empty()) {
    refuse(std::move(record), why);
    return;
  }
  store_.drop_part(header.id);  // of an attempt that was given up
  Fd fd = store_.open_part(header.id);
  if (!fd) {
    refuse(std::move(record), std::strerror(errno));
    return;
  }
  const auto begun = transfers_.emplace(header.id, Transfer(std::move(record), std::move(fd)));
  Transfer& transfer = begun.first->second;
  settlement_.save(transfer.record());  // with all its parts as missing: we may be killed now
  (void)transfer.take_header(header);   // agrees with itself
  touch(header.id);
  feed_from_stash(transfer);
}

std::string Receiver::reason_to_refuse(const HeaderPacket& header) const {
  if (options_.max_file_size != 0 && header.size > options_.max_file_size) {
    return "larger than --max-file-size";
  }
  if (transfers_.size() >= options_.max_transfers) return "too many at a time (--max-transfers)";
  if (!store_.has_room(header.size + bytes_on_their_way())) return "not enough free disk space";
  return "";
}

/// What the files under way will still take; each is below 2^63.
std::uint64_t Receiver::bytes_on_their_way() const {
  std::uint64_t bytes = 0;
  for (const auto& [id, transfer] : transfers_) {
    const TransferRecord& counts = transfer.counts();
    bytes += (counts.parts - counts.received) * part_size(counts.udata_size);
  }
  return std::min<std::uint64_t>(bytes, INT64_MAX);
}

void Receiver::feed_from_stash(Transfer& transfer) {
  const std::uint64_t id = transfer.counts().id;
  const std::vector<Stash::Part> parts = stash_.take(id);
  for (const Stash::Part& part : parts) {
    const DataPacket packet{id, part.part_no, part.bytes.data(), part.bytes.size()};
    if (!transfer.take_part(packet)) ++metrics_.contradicting;
  }
  (void)transfer.flush();  // before `parts` goes; a failure shows at the batch's end, too
}

void Receiver::end_batch() {
  look_at_clocks();
  notices_.heard(now_);
  metrics_.last_datagram = real_;
  for (const std::uint64_t id : std::exchange(touched_, {})) {
    const auto found = transfers_.find(id);
    if (found == transfers_.end()) continue;
    found->second.seen(now_, real_);
    settle(found->second);
  }
}

// The end of a transfer. Each of these may close it: the reference that it was
// given is then gone.

void Receiver::settle(Transfer& transfer) {
  const std::uint64_t id = transfer.counts().id;
  latest_id_ = id;
  if (!transfer.flush()) {
    fail(transfer, std::strerror(errno));
  } else if (transfer.is_complete()) {
    if (settlement_.deliver(transfer, real_)) remember(id);
    close(id);
  }
}

/// The disk is full, or fails: only this transfer pays for it.
void Receiver::fail(Transfer& transfer, const std::string& why) {
  TransferRecord record = transfer.record();
  store_.drop_part(record.id);
  close(record.id);
  refuse(std::move(record), why);
}

void Receiver::refuse(TransferRecord record, const std::string& why) {
  remember(record.id);
  settlement_.refuse(std::move(record), why, now_);
}

void Receiver::close(std::uint64_t id) {
  const auto found = transfers_.find(id);
  closed_repeated_ += found->second.counts().repeated;
  closed_differing_ += found->second.counts().differing;
  transfers_.erase(found);
}

void Receiver::remember(std::uint64_t id) {
  (void)stash_.take(id);
  settled_.add(id);
}

// What an earlier run left.

void Receiver::resume() {
  const std::string boot_file = store_.hidden_path() + "/boot_id";
  const bool same_boot = is_same_boot(boot_file);
  std::vector<std::uint64_t> left = store_.parts_left();
  std::vector<TransferRecord> unfinished = ledger_.all(Outcome::kReceiving);
  const bool readable = ledger_is_readable();
  for (TransferRecord& record : unfinished) {
    const auto part = std::find(left.begin(), left.end(), record.id);
    const bool has_part = part != left.end();
    if (has_part) left.erase(part);
    if (has_part && same_boot) {
      resume_one(std::move(record));
      continue;
    }
    store_.drop_part(record.id);
    close_unfinished(std::move(record), has_part);
  }
  if (!readable) return;  // what it does not tell of may still be wanted
  for (const std::uint64_t id : left) store_.drop_part(id);
  note_boot(boot_file);  // last: a kill on the way here must not make old bytes good
}

/// False, with one warning a run, if it did not give all that it should hold.
bool Receiver::ledger_is_readable() {
  const std::string error = ledger_.read_error();
  if (!error.empty() && !std::exchange(damage_told_, true)) events_.warning("ledger: " + error);
  return error.empty();
}

/// Of what an earlier run had begun to deliver, or to give up, when it was killed,
/// the part is gone and the record tells which of both it was.
void Receiver::close_unfinished(TransferRecord record, bool has_part) {
  const bool given_up = !has_part && !record.why.empty();
  const bool delivered =
      !has_part && !given_up && record.missing.empty() && record.received == record.parts;
  if (!delivered && !given_up) {
    record.why = has_part ? "the machine was restarted" : "its bytes are gone";
    record.missing = Ranges(1, record.parts).text();
  }
  record.outcome = delivered ? Outcome::kDelivered : Outcome::kIncomplete;
  settlement_.save(record);
  if (delivered) return;
  ++metrics_.incomplete;
  events_.incomplete(record);
}

void Receiver::resume_one(TransferRecord record) {
  const std::uint64_t id = record.id;
  record.why.clear();  // of giving it up, which did not come to its end
  const double silent_for = std::max(0.0, real_ - record.last_packet);
  Fd fd = store_.open_part(id);
  if (!fd) {
    refuse(std::move(record), std::strerror(errno));
    return;
  }
  Transfer transfer = Transfer::resumed(std::move(record), std::move(fd));
  transfer.last_seen = now_ - silent_for;
  settle(transfers_.emplace(id, std::move(transfer)).first->second);
}

void Receiver::end(std::uint64_t kernel_drops) {
  save_progress();
  update_metrics(kernel_drops);
}

// By time.

void Receiver::tick(std::uint64_t kernel_drops) {
  look_at_clocks();
  give_up_the_silent(now_);
  stash_.expire(now_, options_.give_up);
  notices_.notice_silence(now_);
  notices_.notice_drops(kernel_drops);
  notices_.show_progress(latest(), metrics_.bytes, now_);
  if (now_ >= next_save_) {
    next_save_ = now_ + kSaveInterval;
    save_progress();
  }
  if (now_ >= next_metrics_) {
    next_metrics_ = now_ + kMetricsInterval;
    update_metrics(kernel_drops);
  }
}

void Receiver::give_up_the_silent(double now) {
  std::vector<std::uint64_t> silent;
  for (const auto& [id, transfer] : transfers_) {
    if (now - transfer.last_seen > options_.give_up) silent.push_back(id);
  }
  for (const std::uint64_t id : silent) {
    settlement_.give_up(transfers_.at(id), "no more packets came");
    close(id);
  }
}

void Receiver::save_progress() {
  settlement_.save_again();
  ledger_.begin();
  for (auto& [id, transfer] : transfers_) {
    if (std::exchange(transfer.unsaved, false)) settlement_.save(transfer.record());
  }
  const std::string error = ledger_.commit();
  if (error.empty()) return;
  events_.warning("ledger: " + error);
  for (auto& [id, transfer] : transfers_) transfer.unsaved = true;  // nothing was kept
}

void Receiver::update_metrics(std::uint64_t kernel_drops) {
  metrics_.repeated_parts = closed_repeated_;
  metrics_.differing_parts = closed_differing_;
  metrics_.missing_parts = 0;
  for (const auto& [id, transfer] : transfers_) {
    const TransferRecord& counts = transfer.counts();
    metrics_.repeated_parts += counts.repeated;
    metrics_.differing_parts += counts.differing;
    metrics_.missing_parts += counts.parts - counts.received;
  }
  metrics_.open_transfers = transfers_.size();
  metrics_.forgotten_parts = stash_.forgotten();
  metrics_.kernel_drops = kernel_drops;
  metrics_.link_sent = link_loss_.sent();
  metrics_.link_lost = link_loss_.lost();
  if (!options_.metrics.empty() && !write_metrics(metrics_, options_.metrics)) {
    events_.warning(options_.metrics + ": " + std::strerror(errno));
  }
}

const Transfer* Receiver::latest() const {
  const auto found = transfers_.find(latest_id_);
  return found == transfers_.end() ? nullptr : &found->second;
}
