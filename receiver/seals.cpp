#include "receiver/seals.h"

#include <fcntl.h>

#include <algorithm>
#include <unordered_map>
#include <utility>

#include "receiver/base/names.h"
#include "receiver/repair/repair.h"
#include "seal/keys.h"
#include "seal/record.h"
#include "wire/wire_format.h"

namespace {

/// The record's own name is in no code page: its bytes are those of the sender's names.
std::string as_it_is(const std::string& text) { return from_wire(text, SND_CP); }

std::string hex_text(const PublicKey& key) {
  std::string text;
  for (const unsigned char byte : key) {
    text += "0123456789abcdef"[byte >> 4];
    text += "0123456789abcdef"[byte & 15];
  }
  return text;
}

std::uint64_t parts_of(const SealRecord& record) { return part_count(record.size, record.udata); }

std::optional<CodeLayout> layout_of(const SealRecord& record) {
  if (!record.code) return {};
  return CodeLayout::of(parts_of(record), part_size(record.udata), *record.code);
}

/// "", or why the seal's header packet and its record can't be of one seal.
std::string why_at_odds(const HeaderPacket& header, const SealRecord& record) {
  const std::optional<CodeLayout> layout = layout_of(record);
  const std::uint64_t size =
      layout ? layout->repair_parts() * std::uint64_t{part_size(record.udata)} : 0;
  const bool agrees = header.name == seal_name(record.of) && header.udata_size == record.udata &&
                      header.path_crc == record.crc && header.send_time == record.sent &&
                      header.size == size && record.kind != kKindSeal;
  return agrees ? "" : "its header packet and its record differ";
}

}  // namespace

struct Seals::Known {
  struct Of {
    SealRecord record;
    std::string text;
    std::optional<TransferKey> seal;
  };
  std::vector<PublicKey> trusted;
  std::unordered_map<TransferKey, Of> files;
  std::unordered_map<TransferKey, TransferKey> seals;         ///< the file of each
  std::unordered_map<TransferKey, std::string> not_believed;  ///< seals: the text that was not

  const Of* find(const TransferKey& file) const {
    const auto found = files.find(file);
    return found == files.end() ? nullptr : &found->second;
  }
};

Seals::Seals(SealSettings settings)
    : known_(std::make_unique<Known>()), settings_(std::move(settings)) {
  for (const std::string& path : settings_.trust) {
    if (!read_trusted_keys(path, known_->trusted, error_)) return;
  }
}

Seals::~Seals() = default;

bool Seals::are_required() const { return settings_.require || !settings_.trust.empty(); }

std::optional<TransferKey> Seals::take(const HeaderPacket& header, const TransferKey& seal,
                                       const Now& now, std::string& why) {
  constexpr std::size_t kMostNotBelieved = 1000;
  if (const auto known = known_->seals.find(seal); known != known_->seals.end()) {
    return known_->files.at(known->second).text == header.record ? std::optional(known->second)
                                                                 : std::nullopt;
  }
  if (const auto no = known_->not_believed.find(seal);
      no != known_->not_believed.end() && no->second == header.record) {
    return {};
  }
  const std::optional<SealRecord> record = parse_record(header.record);
  if (!record) {
    why = "its record is malformed";
  } else if (why = why_at_odds(header, *record); !why.empty()) {
  } else if (settings_.max_age > 0 &&
             now.real - static_cast<double>(record->sent) > settings_.max_age) {
    why = "it was sent too long ago (--max-age)";
  } else if (!known_->trusted.empty()) {
    const auto& trusted = known_->trusted;
    if (!record->key) {
      why = "it is not signed";
    } else if (std::find(trusted.begin(), trusted.end(), *record->key) == trusted.end()) {
      why = "it is signed by an untrusted key, " + hex_text(*record->key);
    } else if (!signature_holds(header.record, *record)) {
      why = "its signature does not hold";
    }
  }
  if (!why.empty()) {
    if (known_->not_believed.size() >= kMostNotBelieved) known_->not_believed.clear();
    known_->not_believed[seal] = header.record;
    return {};
  }
  const TransferKey file{record->of, seal.address, seal.port};
  // the first one believed counts; of an earlier run's only the record is left
  const Known::Of* before = known_->find(file);
  if (before != nullptr && (before->seal || before->text != header.record)) return {};
  known_->files[file] = {*record, header.record, seal};
  known_->seals[seal] = file;
  return file;
}

bool Seals::knows(const TransferKey& file) const { return known_->find(file) != nullptr; }

std::optional<TransferKey> Seals::seal_of(const TransferKey& file) const {
  const Known::Of* of = known_->find(file);
  return of == nullptr ? std::nullopt : of->seal;
}

std::optional<TransferKey> Seals::file_of(const TransferKey& seal) const {
  const auto found = known_->seals.find(seal);
  return found == known_->seals.end() ? std::nullopt : std::optional(found->second);
}

HeaderPacket Seals::header_of(const TransferKey& file) const {
  HeaderPacket header;
  const Known::Of* of = known_->find(file);
  if (of == nullptr) return header;
  header.id = of->record.of;
  header.size = of->record.size;
  header.udata_size = of->record.udata;
  header.path_crc = of->record.crc;
  header.send_time = of->record.sent;
  header.file_kind = of->record.kind;
  return header;
}

bool Seals::agrees(const TransferRecord& file) const {
  const HeaderPacket header = header_of(file.key);
  return knows(file.key) && header.size == file.size && header.udata_size == file.udata_size &&
         header.path_crc == file.path_crc && header.send_time == file.send_time &&
         header.file_kind == file.file_kind;
}

Proof Seals::examine(Arrival& file, const Arrival* seal, PartFiles& parts) const {
  const Known::Of* of = known_->find(file.key());
  if (of == nullptr) return Proof::kNone;
  const TransferRecord& counts = file.counts();
  Fd bytes;
  if (counts.parts > 0) bytes = Fd(fcntl(parts.open(file.key()), F_DUPFD_CLOEXEC, 0));
  const std::optional<CodeLayout> layout = layout_of(of->record);
  if (!file.is_complete() && layout && seal != nullptr && bytes) {
    const int repair = parts.open_left(seal->key());  // none: nothing came of it
    if (repair >= 0) {
      file.note_rebuilt(rebuild_parts(*layout, {bytes.get(), counts.size, file.missing()},
                                      {repair, seal->counts().size, seal->missing()}));
    }
  }
  if (!file.is_complete()) return Proof::kNone;
  const std::optional<ContentHash> digest = digest_of(bytes.get(), counts.size);
  if (!digest) return Proof::kNone;  // it can't be read now
  return *digest == of->record.b2 ? Proof::kHolds : Proof::kDiffers;
}

std::optional<SealedAs> Seals::sealed_as(const TransferKey& file) const {
  const Known::Of* of = known_->find(file);
  if (of == nullptr || !of->record.path) return {};
  const timespec mtime{static_cast<std::time_t>(of->record.mtime_s),
                       static_cast<long>(of->record.mtime_ns)};
  return SealedAs{as_it_is(of->record.path->name),
                  as_it_is(of->record.path->folder),
                  {static_cast<mode_t>(of->record.mode), mtime}};
}

std::string Seals::proof_text(const TransferKey& file) const {
  const Known::Of* of = known_->find(file);
  if (of == nullptr) return "";
  const bool is_signed = of->record.key && signature_holds(of->text, of->record);
  return is_signed ? "signed " + hex_text(*of->record.key) : "digest";
}

void Seals::resume(const TransferKey& file, const std::string& text) {
  const std::optional<SealRecord> record = parse_record(text);
  if (record) known_->files[file] = {*record, text, std::nullopt};
}

std::string Seals::text_of(const TransferKey& file) const {
  const Known::Of* of = known_->find(file);
  return of == nullptr ? "" : of->text;
}

void Seals::forget(const TransferKey& file) {
  const auto found = known_->files.find(file);
  if (found == known_->files.end()) return;
  if (found->second.seal) known_->seals.erase(*found->second.seal);
  known_->files.erase(found);
}
