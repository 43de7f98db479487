#include "receiver/receiver.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fstream>
#include <utility>
#include <variant>
#include <vector>

#include "receiver/boot.h"
#include "receiver/journal.h"
#include "receiver/names.h"
#include "receiver/report.h"
#include "send/wire_format.h"

namespace {

constexpr std::size_t kRemembered = 100'000;    // settled ids kept in memory
constexpr double kSaveInterval = 1.0;           // s
constexpr double kMetricsInterval = 5.0;        // s
constexpr double kProgressInterval = 0.2;       // s
constexpr std::uint64_t kRefusalsASecond = 20;  // told and recorded; all are counted

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

std::string missing_note(const TransferRecord& record) {
  const std::string missing = missing_bytes(record.missing, record.size, record.udata_size);
  return safe_name(record.name) + ": " + record.why + ". Of " + std::to_string(record.size) +
         " bytes these are missing: " + (missing.empty() ? "none" : missing) + "\n";
}

}  // namespace

Receiver::Receiver(const Options& options, Store& store, Ledger& ledger, Events& events)
    : options_(options), store_(store), ledger_(ledger), events_(events) {
  look_at_clocks();
  last_heard_ = now_;
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
    if (settled_.count(packet.id) != 0) {
      ++closed_repeated_;
    } else {
      stash_.put(packet);
    }
    return;
  }
  touched_.insert(packet.id);
  if (!found->second.take_part(packet)) ++metrics_.contradicting;
}

void Receiver::take_header(const HeaderPacket& header, const sockaddr_in& from) {
  if (const auto found = transfers_.find(header.id); found != transfers_.end()) {
    touched_.insert(header.id);
    if (!found->second.take_header(header)) ++metrics_.contradicting;
    return;
  }
  if (settled_.count(header.id) != 0) return;
  const std::optional<TransferRecord> known = ledger_.find(header.id);
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
  save(begun.first->second.record());  // with all its parts as missing: we may be killed now
  (void)begun.first->second.take_header(header);  // agrees with itself
  touched_.insert(header.id);
  feed_from_stash(begun.first->second);
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
  last_heard_ = now_;
  metrics_.last_datagram = real_;
  silence_told_ = false;
  for (const std::uint64_t id : std::exchange(touched_, {})) {
    const auto found = transfers_.find(id);
    if (found == transfers_.end()) continue;
    found->second.seen(now_, real_);
    settle(found->second);
  }
}

// What becomes of a transfer. Each of these may close it: the reference that it was
// given is then gone.

void Receiver::settle(Transfer& transfer) {
  shown_id_ = transfer.counts().id;
  if (!transfer.flush()) {
    fail(transfer, std::strerror(errno));
  } else if (transfer.is_complete()) {
    deliver(transfer);
  }
}

void Receiver::deliver(Transfer& transfer) {
  TransferRecord record = transfer.record();
  // should we be killed now, the next run finds nothing missing and delivers it,
  // or finds it gone from here and knows that it was delivered
  save(record);
  const std::string name = safe_name(record.name);
  const bool journal = record.file_kind == kKindTrashJournal;
  // before it is delivered: should we be killed in between, it is not read again
  if (journal) read_journal_of(transfer);
  const Delivery delivery =
      journal ? store_.deliver_journal(record.id, transfer.fd(), record.send_time, name)
              : store_.deliver(record.id, transfer.fd(), safe_folders(record.folder), name);
  if (!delivery.done) {
    give_up(transfer, "complete, but can't be delivered: " + delivery.error);
    return;
  }
  record.outcome = Outcome::kDelivered;
  record.delivered_to = delivery.path;
  save(record);
  ++metrics_.delivered;
  metrics_.last_delivery = real_;
  events_.delivered(record);
  remember(record.id);
  close(record.id);
}

void Receiver::read_journal_of(const Transfer& transfer) {
  std::ifstream file("/proc/self/fd/" + std::to_string(transfer.fd()), std::ios::binary);
  const Journal journal = read_journal(file);
  const std::string error = ledger_.add_journal(journal.entries);
  if (!error.empty()) events_.warning("ledger: " + error);
  if (journal.bad_lines > 0) {
    events_.warning("trash journal: " + std::to_string(journal.bad_lines) +
                    " lines are no journal lines");
  }
}

/// Keeps what came, or drops it, and reports it. A later pass begins anew.
void Receiver::give_up(Transfer& transfer, const std::string& why) {
  TransferRecord record = transfer.record();
  record.outcome = Outcome::kIncomplete;
  record.why = why;
  Delivery kept;
  if (options_.drop_incomplete) {
    store_.drop_part(record.id);
  } else {
    kept = store_.keep_incomplete(record.id, safe_name(record.name), missing_note(record));
    if (!kept.done) events_.warning("can't keep an incomplete file: " + kept.error);
  }
  record.delivered_to = kept.path;
  save(record);
  ++metrics_.incomplete;
  events_.incomplete(record, kept.path);
  close(record.id);
}

/// The disk is full, or fails: only this transfer pays for it.
void Receiver::fail(Transfer& transfer, const std::string& why) {
  TransferRecord record = transfer.record();
  store_.drop_part(record.id);
  close(record.id);
  refuse(std::move(record), why);
}

void Receiver::refuse(TransferRecord record, const std::string& why) {
  ++metrics_.refused;
  remember(record.id);
  if (now_ - refusal_second_ >= 1) {
    refusal_second_ = now_;
    refusals_told_ = 0;
  }
  if (++refusals_told_ > kRefusalsASecond) return;  // a flood must not fill the disk
  record.outcome = Outcome::kRefused;
  record.why = why;
  save(record);
  events_.refused(record);
}

void Receiver::close(std::uint64_t id) {
  const auto found = transfers_.find(id);
  closed_repeated_ += found->second.counts().repeated;
  closed_differing_ += found->second.counts().differing;
  transfers_.erase(found);
}

void Receiver::remember(std::uint64_t id) {
  (void)stash_.take(id);
  if (!settled_.insert(id).second) return;
  settled_order_.push_back(id);
  if (settled_order_.size() <= kRemembered) return;
  settled_.erase(settled_order_.front());
  settled_order_.pop_front();
}

void Receiver::save(const TransferRecord& record) {
  const std::string error = ledger_.save(record);
  if (!error.empty()) events_.warning("ledger: " + error);
}

// What an earlier run left.

void Receiver::resume() {
  const bool same_boot = is_same_boot(store_.hidden_path() + "/boot_id");
  std::vector<std::uint64_t> left = store_.parts_left();
  for (TransferRecord& record : ledger_.all(Outcome::kReceiving)) {
    const auto part = std::find(left.begin(), left.end(), record.id);
    const bool has_part = part != left.end();
    if (has_part) left.erase(part);
    if (has_part && same_boot) {
      resume_one(std::move(record));
      continue;
    }
    store_.drop_part(record.id);
    const bool delivered = !has_part && record.missing.empty() && record.received == record.parts;
    record.outcome = delivered ? Outcome::kDelivered : Outcome::kIncomplete;
    if (!delivered) {
      record.why = has_part ? "the machine was restarted" : "its bytes are gone";
      record.missing = Ranges(1, record.parts).text();
      ++metrics_.incomplete;
      events_.incomplete(record, "");
    }
    save(record);
  }
  for (const std::uint64_t id : left) store_.drop_part(id);
}

void Receiver::resume_one(TransferRecord record) {
  const std::uint64_t id = record.id;
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
  notice_silence(now_);
  show_progress(now_);
  tell_kernel_drops(kernel_drops);
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
  for (const std::uint64_t id : silent) give_up(transfers_.at(id), "no more packets came");
}

void Receiver::save_progress() {
  ledger_.begin();
  for (auto& [id, transfer] : transfers_) {
    if (std::exchange(transfer.unsaved, false)) save(transfer.record());
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

void Receiver::tell_kernel_drops(std::uint64_t kernel_drops) {
  if (kernel_drops == drops_told_) return;
  events_.warning("this machine does not keep up: the kernel dropped datagrams " +
                  std::to_string(kernel_drops - drops_told_) + " times");
  drops_told_ = kernel_drops;
}

void Receiver::notice_silence(double now) {
  if (options_.silence <= 0 || silence_told_ || now - last_heard_ <= options_.silence) return;
  silence_told_ = true;
  events_.warning("nothing came for " + std::to_string(static_cast<long>(now - last_heard_)) +
                  " seconds");
}

void Receiver::show_progress(double now) {
  if (!events_.shows_progress() || now < next_progress_) return;
  next_progress_ = now + kProgressInterval;
  const auto found = transfers_.find(shown_id_);
  if (found == transfers_.end()) return;
  const std::uint64_t bytes = metrics_.bytes;
  const double rate = static_cast<double>(bytes - shown_bytes_) / std::max(now - shown_at_, 1e-3);
  shown_bytes_ = bytes;
  shown_at_ = now;
  events_.progress(found->second.counts(), rate, found->second.holes());
}
