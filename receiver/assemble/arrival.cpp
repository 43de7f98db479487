#include "receiver/assemble/arrival.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <iterator>
#include <utility>

#include "receiver/base/names.h"
#include "wire/wire_format.h"

namespace {

constexpr std::size_t kLongestRun = 512;     // below IOV_MAX (1,024, limits.h)
constexpr std::size_t kMostPassesTold = 64;  // later ones count with the last

/// Writes the parts one behind the other.
bool write_parts(int fd, std::vector<iovec> parts, std::uint64_t offset) {
  iovec* next = parts.data();
  std::size_t left = parts.size();
  while (left > 0) {
    ssize_t done = pwritev(fd, next, static_cast<int>(left), static_cast<off_t>(offset));
    if (done < 0 && errno == EINTR) continue;
    if (done < 0) return false;
    offset += static_cast<std::uint64_t>(done);
    for (; left > 0 && done >= static_cast<ssize_t>(next->iov_len); ++next, --left) {
      done -= static_cast<ssize_t>(next->iov_len);
    }
    if (left == 0) break;
    next->iov_base = static_cast<char*>(next->iov_base) + done;
    next->iov_len -= static_cast<std::size_t>(done);
  }
  return true;
}

bool is_stored(int fd, const iovec& part, std::uint64_t offset) {
  std::vector<unsigned char> stored(part.iov_len);
  const ssize_t got = pread(fd, stored.data(), stored.size(), static_cast<off_t>(offset));
  return got == static_cast<ssize_t>(stored.size()) &&
         std::memcmp(stored.data(), part.iov_base, stored.size()) == 0;
}

}  // namespace

TransferRecord begin_record(const HeaderPacket& header, const TransferKey& key,
                            const std::string& charset, const std::string& source, double now) {
  TransferRecord record;
  record.key = key;
  record.send_time = header.send_time;
  record.path_crc = header.path_crc;
  record.file_kind = header.file_kind;
  record.udata_size = header.udata_size;
  record.size = header.size;
  record.name = from_wire(header.name, charset);
  record.folder = from_wire(header.folder, charset);
  record.source = source;
  record.first_packet = now;
  record.last_packet = now;
  record.parts = part_count(header.size, header.udata_size);
  return record;
}

Arrival::Arrival(TransferRecord record, PartFiles& files)
    : record_(std::move(record)), files_(&files), missing_(1, record_.parts) {}

Arrival Arrival::resumed(TransferRecord record, PartFiles& files) {
  const std::optional<Ranges> missing = Ranges::parse(std::exchange(record.missing, ""));
  Arrival arrival(std::move(record), files);
  if (missing) arrival.missing_ = *missing;
  const auto& left = arrival.missing_.all();
  const std::uint64_t parts = arrival.record_.parts;
  const bool open_end = !left.empty() && left.rbegin()->second == parts;
  arrival.highest_ = open_end ? left.rbegin()->first - 1 : parts;
  return arrival;
}

bool Arrival::take_header(const HeaderPacket& header) {
  // the ledger does not keep the names off the wire, so after a restart the next header sets them
  const std::size_t names = std::hash<std::string>{}(header.name + '\0' + header.folder);
  if (!names_) names_ = names;
  if (header.size != record_.size || header.udata_size != record_.udata_size ||
      header.path_crc != record_.path_crc || header.send_time != record_.send_time ||
      header.file_kind != record_.file_kind || *names_ != names) {
    return false;
  }
  flush();  // what was gathered belongs to the pass before
  note_pass(0);
  return true;
}

bool Arrival::take_part(const DataPacket& packet) {
  if (packet.part_no > record_.parts || packet.len != length_of(packet.part_no)) return false;
  const bool follows = !run_.empty() && packet.part_no == run_first_ + run_.size();
  if (!follows || run_.size() == kLongestRun) flush();
  if (run_.empty()) run_first_ = packet.part_no;
  note_pass(packet.part_no);
  run_.push_back({const_cast<unsigned char*>(packet.data), packet.len});
  if (!is_complete() && missing_.count() <= run_.size()) flush();
  return true;
}

void Arrival::flush() {
  if (run_.empty()) return;
  const std::uint64_t before = record_.received + record_.repeated;
  const int fd = files_->open(record_.key);
  if (fd < 0 || !write_run(fd)) error_ = errno;
  failed_parts_ += run_.size() - (record_.received + record_.repeated - before);
  std::vector<iovec>().swap(run_);  // its bytes may be gone when the next call comes
}

/// A part does not count as received before its bytes are in the file.
bool Arrival::write_run(int fd) {
  const std::uint64_t last = run_first_ + run_.size() - 1;
  if (are_all_missing(run_first_, last)) return write_new(fd, run_, run_first_);  // mostly
  for (std::size_t i = 0; i < run_.size(); ++i) {
    const std::uint64_t part_no = run_first_ + i;
    if (!missing_.contains(part_no)) {
      if (!take_known_part(fd, part_no, run_[i])) ++record_.differing;
    } else if (!write_new(fd, {run_[i]}, part_no)) {
      return false;
    }
  }
  return true;
}

bool Arrival::write_new(int fd, const std::vector<iovec>& parts, std::uint64_t first) {
  if (!write_parts(fd, parts, offset_of(first))) return false;
  const std::uint64_t last = first + parts.size() - 1;
  missing_.remove(first, last);
  highest_ = std::max(highest_, last);
  count(record_.received_per_pass, parts.size());
  record_.received += parts.size();
  return true;
}

bool Arrival::are_all_missing(std::uint64_t first, std::uint64_t last) const {
  const auto behind = missing_.all().upper_bound(first);
  return behind != missing_.all().begin() && std::prev(behind)->second >= last;
}

/// Returns false if other bytes are stored for this part.
bool Arrival::take_known_part(int fd, std::uint64_t part_no, const iovec& bytes) {
  count(record_.repeated_per_pass, 1);
  ++record_.repeated;
  return is_stored(fd, bytes, offset_of(part_no));
}

TransferRecord Arrival::record() const {
  TransferRecord record = record_;
  record.missing = missing_.text();
  return record;
}

void Arrival::note_attempt(const TransferRecord& attempted) {
  record_.outcome = attempted.outcome;
  record_.why = attempted.why;
  record_.asked_for = attempted.asked_for;
  record_.lies_at = attempted.lies_at;
  record_.collided = attempted.collided;
}

void Arrival::note_rebuilt(const std::vector<std::uint64_t>& parts) {
  for (const std::uint64_t part : parts) {
    const std::uint64_t count = missing_.remove(part, part);
    record_.repaired += count;
    record_.received += count;
    highest_ = std::max(highest_, part);
  }
}

std::uint64_t Arrival::offset_of(std::uint64_t part_no) const {
  return (part_no - 1) * part_size(record_.udata_size);
}

std::size_t Arrival::length_of(std::uint64_t part_no) const {
  return static_cast<std::size_t>(
      std::min<std::uint64_t>(part_size(record_.udata_size), record_.size - offset_of(part_no)));
}

/// A pass begins with header packets; should all of them be lost, the part
/// numbers fall back by more than reordering explains. Part 0 is a header.
void Arrival::note_pass(std::uint64_t part_no) {
  const bool falls_back =
      part_no < highest_in_pass_ && highest_in_pass_ - part_no > record_.parts / 2;
  if (falls_back) {
    pass_ = std::min(pass_ + 1, kMostPassesTold - 1);
    highest_in_pass_ = 0;
  }
  highest_in_pass_ = std::max(highest_in_pass_, part_no);
}

void Arrival::count(std::vector<std::uint64_t>& per_pass, std::uint64_t parts) {
  if (per_pass.size() <= pass_) per_pass.resize(pass_ + 1);
  per_pass[pass_] += parts;
}
