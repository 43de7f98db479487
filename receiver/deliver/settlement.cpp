#include "receiver/deliver/settlement.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <optional>
#include <utility>

#include "receiver/base/byte_ranges.h"
#include "receiver/base/names.h"
#include "receiver/base/ranges.h"
#include "receiver/ledger/journal.h"
#include "wire/wire_format.h"

namespace {

constexpr int kMostTries = 100;  // for a name that others keep taking
// Lines of a trash journal at once: half a second's work, and the batches wait for it.
constexpr std::size_t kMostLines = 50'000;
constexpr char kUndeliverable[] = "complete, but can't be delivered: ";

std::string missing_note(const TransferRecord& record) {
  const std::string missing = ranges_text(missing_bytes(record));
  return safe_name(record.name) + ": " + record.why + ". Of " + std::to_string(record.size) +
         " bytes these are missing: " + (missing.empty() ? "none" : missing) + "\n";
}

}  // namespace

Settled Settlement::deliver(Arrival& arrival, const Now& now,
                            const std::optional<SealedAs>& sealed) {
  TransferRecord record = arrival.record();
  if (record.outcome == Outcome::kReceiving) record.why.clear();  // of giving up in vain
  // an empty file was never written to
  if (record.parts == 0 && store_.parts().open(record.key) < 0) {
    return wait(arrival, std::move(record), std::strerror(errno));
  }
  const Delivery delivery = record.file_kind == kKindTrashJournal ? deliver_journal(record)
                                                                  : deliver_file(record, sealed);
  if (delivery.goes_on) return Settled::kGoesOn;
  if (!delivery.done) {
    const bool can_wait =
        !delivery.hopeless && (record.outcome == Outcome::kWaiting || store_.sync_part(record.key));
    return can_wait ? wait(arrival, std::move(record), delivery.error)
                    : give_up(arrival, kUndeliverable + delivery.error, now);
  }
  record.outcome = Outcome::kDelivered;
  record.why.clear();
  record.delivered_to = delivery.path;
  (void)records_.save(record);  // or it waits
  ++metrics_.delivered;
  metrics_.last_delivery = now.real;
  if (record.collided) ++metrics_.name_collisions;
  if (record.repaired > 0) ++metrics_.repaired_files;
  events_.delivered(record);
  if (!delivery.error.empty()) events_.warning(delivery.error);
  return Settled::kDelivered;
}

Settled Settlement::wait(Arrival& arrival, const std::string& why) {
  return wait(arrival, arrival.record(), why);
}

Settled Settlement::wait(Arrival& arrival, TransferRecord record, const std::string& why) {
  const bool told = arrival.counts().outcome == Outcome::kWaiting;
  record.outcome = Outcome::kWaiting;
  record.why = kUndeliverable + why;
  if (!told || record.why != arrival.counts().why) (void)records_.save(record);
  arrival.note_attempt(record);
  if (!told) {
    events_.warning(safe_name(record.name) + " is " + record.why +
                    "; it waits, and is tried again every few seconds");
  }
  return Settled::kNotYet;
}

/// Reads the journal, some lines each time, before it delivers it: a kill in between would
/// lose its entries. The next run reads it from the start, and what is there is not added.
Delivery Settlement::deliver_journal(TransferRecord& record) {
  if (journals_read_.count(record.key) == 0) intend(record, "", false);
  Delivery delivery;
  bool is_read = false;
  delivery.error = read_journal_of(record, is_read);
  delivery.goes_on = delivery.error.empty() && !is_read;
  if (!is_read) return delivery;
  journals_read_.erase(record.key);
  return store_.deliver_journal(record.key, record.send_time, safe_name(record.name));
}

/// Notes where the file is to lie and moves it there. The note is saved first. Should we
/// be killed before the move, the next run finds nothing missing and delivers it; after
/// the move it finds the file gone from here and knows that it was delivered, and where.
Delivery Settlement::deliver_file(TransferRecord& record, const std::optional<SealedAs>& sealed) {
  std::vector<std::string> folders = safe_folders(sealed ? sealed->folder : record.folder);
  const std::string wanted = safe_name(sealed ? sealed->name : record.name);
  record.asked_for = joined_path(folders) + wanted;
  Naming naming = name_for(record, folders, wanted);
  bool moved_aside = false;  // a folder is numbered
  Delivery delivery;
  for (int tries = 0; tries < kMostTries; ++tries) {
    intend(record, joined_path(folders) + naming.name,
           moved_aside || (naming.collides && naming.name != wanted));
    delivery = store_.deliver(record.key, folders, naming.name, naming.replace,
                              sealed ? std::optional(sealed->attributes) : std::nullopt);
    if (delivery.barred) {
      moved_aside = true;
      folders = store_.free_folders(folders);
      naming = name_for(record, folders, wanted);
    } else if (delivery.taken) {
      naming.collides = naming.collides || naming.replace;  // a folder has the name
      naming.replace = false;
      naming.name = store_.free_name(folders, wanted);
    } else {
      break;
    }
  }
  return delivery;
}

/// An attempt that failed before has saved the same.
void Settlement::intend(TransferRecord& record, const std::string& lies_at, bool collided) {
  if (record.outcome == Outcome::kWaiting && record.lies_at == lies_at) return;
  record.lies_at = lies_at;
  record.collided = collided;
  (void)records_.save(record);  // else a kill right now has it called incomplete
}

/// A file of another path is never replaced. An existing file is replaced only if it is known
/// to come from this path, or is in no record. If the ledger can't tell, nothing is replaced.
Settlement::Naming Settlement::name_for(const TransferRecord& record,
                                        const std::vector<std::string>& folders,
                                        const std::string& wanted) {
  const Origin origin{record.key.address, record.path_crc};
  const std::optional<Origin> owner = records_.owner_of(joined_path(folders) + wanted);
  const bool ours = owner && *owner == origin;
  const bool known = records_.were_certain();
  Naming naming{wanted, false, owner && !ours};
  if (!known || store_.keeps_existing()) return naming;
  if (!ours) {
    const std::string before = records_.place_of(record.asked_for, origin);
    const std::string name = before.substr(before.rfind('/') + 1);
    if (!before.empty() && before == joined_path(folders) + name &&
        records_.owner_of(before) == origin && store_.has_file(folders, name)) {
      return {name, true, true};
    }
  }
  naming.replace = ours || !owner;
  return naming;
}

/// Reads more of the journal. Returns "", or why its entries can't be kept now.
std::string Settlement::read_journal_of(const TransferRecord& record, bool& is_read) {
  const int fd = store_.parts().open_left(record.key);
  if (fd < 0) return std::strerror(errno);
  std::ifstream file("/proc/self/fd/" + std::to_string(fd), std::ios::binary);
  std::uint64_t& bytes = journals_read_[record.key];
  file.seekg(static_cast<std::streamoff>(bytes));
  Journal journal = read_journal(file, kMostLines);
  for (JournalEntry& entry : journal.entries) entry.address = record.key.address;
  std::string error = ledger_.add_journal(journal.entries);
  if (!error.empty()) return error;
  // after the last of many lines the disk rests as well before the file is synced
  is_read = journal.is_whole && (bytes == 0 || journal.bytes == 0);
  bytes += journal.bytes;
  if (journal.bad_lines > 0) {
    events_.warning("trash journal: " + std::to_string(journal.bad_lines) +
                    " lines belong to no entry whose CRC agrees with its path");
  }
  return "";
}

Settled Settlement::give_up(Arrival& arrival, const std::string& why, const Now& now) {
  TransferRecord record = arrival.record();
  journals_read_.erase(record.key);
  record.outcome = Outcome::kReceiving;
  if (record.received == 0 && record.parts > 0) {
    store_.parts().drop(record.key);
    lose(std::move(record), why, now);
    return Settled::kGivenUp;
  }
  record.why = why;
  (void)records_.save(record);  // should we be killed now, it is not taken for delivered
  Delivery kept;
  if (drop_incomplete_) {
    store_.parts().drop(record.key);
  } else {
    kept = store_.keep_incomplete(record.key, safe_name(record.name), missing_note(record));
    if (!kept.done && arrival.counts().why.empty()) {
      events_.warning("can't keep an incomplete file: " + kept.error);
    }
    arrival.note_attempt(record);
    if (!kept.done && !kept.hopeless) return Settled::kNotYet;
  }
  record.outcome = Outcome::kIncomplete;
  record.delivered_to = kept.path;
  (void)records_.save(record);  // or it waits
  ++metrics_.incomplete;
  events_.incomplete(record);
  return Settled::kGivenUp;
}

void Settlement::lose(TransferRecord record, const std::string& why, const Now& now) {
  ++metrics_.incomplete;
  ++refusals_[why];
  if (!losses_told_.spend(now)) return;
  record.outcome = Outcome::kIncomplete;
  record.why = why;
  record.missing = Ranges(1, record.parts).text();
  (void)records_.save(record);  // or it waits
  events_.incomplete(record);
}

void Settlement::refuse(TransferRecord record, const std::string& why, const Now& now) {
  ++metrics_.refused;
  ++refusals_[why];
  if (!refusals_told_.spend(now)) return;
  record.outcome = Outcome::kRefused;
  record.why = why;
  (void)records_.save(record);  // or it waits
  events_.refused(record);
}

void Settlement::save_refusals(double real) {
  if (refusals_.empty()) return;
  ledger_.begin();
  const std::string error = ledger_.count_refusals(refusals_, real);
  if (ledger_.commit().empty() && error.empty()) refusals_.clear();
}

bool Settlement::Budget::spend(const Now& now) {
  constexpr double kMoreASecond = 20;
  left_ = std::min(most_, left_ + (now.monotonic - at_) * kMoreASecond);
  at_ = now.monotonic;
  if (left_ < 1) return false;
  left_ -= 1;
  return true;
}
