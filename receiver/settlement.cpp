#include "receiver/settlement.h"

#include <fstream>
#include <utility>

#include "receiver/byte_ranges.h"
#include "receiver/journal.h"
#include "receiver/names.h"
#include "send/wire_format.h"

namespace {

constexpr std::uint64_t kRefusalsASecond = 20;  // told and recorded; all are counted
constexpr std::size_t kMostUnsaved = 1000;      // kept while the ledger's disk is full

std::string missing_note(const TransferRecord& record) {
  const std::string missing = ranges_text(missing_bytes(record));
  return safe_name(record.name) + ": " + record.why + ". Of " + std::to_string(record.size) +
         " bytes these are missing: " + (missing.empty() ? "none" : missing) + "\n";
}

}  // namespace

bool Settlement::deliver(Transfer& transfer, double real) {
  TransferRecord record = transfer.record();
  // should we be killed now, the next run finds nothing missing and delivers it,
  // or finds it gone from here and knows that it was delivered
  save(record);
  const std::string name = safe_name(record.name);
  const bool journal = record.file_kind == kKindTrashJournal;
  // first of all: delivered first, a kill in between would leave it unread
  if (journal) read_journal_of(transfer);
  const Delivery delivery =
      journal ? store_.deliver_journal(record.id, transfer.fd(), record.send_time, name)
              : store_.deliver(record.id, transfer.fd(), safe_folders(record.folder), name);
  if (!delivery.done) {
    give_up(transfer, "complete, but can't be delivered: " + delivery.error);
    return false;
  }
  record.outcome = Outcome::kDelivered;
  record.delivered_to = delivery.path;
  save(record);
  ++metrics_.delivered;
  metrics_.last_delivery = real;
  events_.delivered(record);
  return true;
}

void Settlement::read_journal_of(const Transfer& transfer) {
  std::ifstream file("/proc/self/fd/" + std::to_string(transfer.fd()), std::ios::binary);
  const Journal journal = read_journal(file);
  const std::string error = ledger_.add_journal(journal.entries);
  if (!error.empty()) events_.warning("ledger: " + error);
  if (journal.bad_lines > 0) {
    events_.warning("trash journal: " + std::to_string(journal.bad_lines) +
                    " lines are no journal lines");
  }
}

void Settlement::give_up(Transfer& transfer, const std::string& why) {
  TransferRecord record = transfer.record();
  record.why = why;
  save(record);  // should we be killed now, the next run does not take it for delivered
  Delivery kept;
  if (drop_incomplete_) {
    store_.drop_part(record.id);
  } else {
    kept = store_.keep_incomplete(record.id, safe_name(record.name), missing_note(record));
    if (!kept.done) events_.warning("can't keep an incomplete file: " + kept.error);
  }
  record.outcome = Outcome::kIncomplete;
  record.delivered_to = kept.path;
  save(record);
  ++metrics_.incomplete;
  events_.incomplete(record);
}

void Settlement::refuse(TransferRecord record, const std::string& why, double now) {
  ++metrics_.refused;
  if (now - refusal_second_ >= 1) {
    refusal_second_ = now;
    refusals_told_ = 0;
  }
  if (++refusals_told_ > kRefusalsASecond) return;  // a flood must not fill the disk
  record.outcome = Outcome::kRefused;
  record.why = why;
  save(record);
  events_.refused(record);
}

void Settlement::save(const TransferRecord& record) {
  const std::string error = ledger_.save(record);
  unsaved_.erase(record.id);
  if (error.empty()) return;
  events_.warning("ledger: " + error);
  if (record.outcome != Outcome::kReceiving && unsaved_.size() < kMostUnsaved) {
    unsaved_.emplace(record.id, record);
  }
}

void Settlement::save_again() {
  while (!unsaved_.empty() && ledger_.save(unsaved_.begin()->second).empty()) {
    unsaved_.erase(unsaved_.begin());
  }
}
