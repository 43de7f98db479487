#include "receiver/transfer.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <utility>

#include "receiver/names.h"
#include "send/wire_format.h"

namespace {

constexpr std::size_t kLongestRun = 512;     // below IOV_MAX (1,024, limits.h)
constexpr std::size_t kMostPassesTold = 64;  // later ones count with the last

bool write_all(int fd, std::vector<iovec> parts, std::uint64_t offset) {
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

TransferRecord begin_record(const HeaderPacket& header, const std::string& charset,
                            const std::string& source, double now) {
  TransferRecord record;
  record.id = header.id;
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

Transfer::Transfer(TransferRecord record, Fd fd)
    : record_(std::move(record)), fd_(std::move(fd)), missing_(1, record_.parts) {}

Transfer Transfer::resumed(TransferRecord record, Fd fd) {
  const std::optional<Ranges> missing = Ranges::parse(record.missing);
  Transfer transfer(std::move(record), std::move(fd));
  if (missing) transfer.missing_ = *missing;
  const auto& left = transfer.missing_.all();
  const std::uint64_t parts = transfer.record_.parts;
  const bool open_end = !left.empty() && left.rbegin()->second == parts;
  transfer.highest_ = open_end ? left.rbegin()->first - 1 : parts;
  return transfer;
}

bool Transfer::take_header(const HeaderPacket& header) {
  // the ledger does not keep the names as they came: after a restart the next header tells
  if (!names_) names_ = {header.name, header.folder};
  if (header.size != record_.size || header.udata_size != record_.udata_size ||
      header.path_crc != record_.path_crc || header.send_time != record_.send_time ||
      header.file_kind != record_.file_kind || names_->first != header.name ||
      names_->second != header.folder) {
    return false;
  }
  (void)flush();  // what was gathered belongs to the pass before; a failure lasts
  note_pass(0);
  return true;
}

bool Transfer::take_part(const DataPacket& packet) {
  if (packet.part_no > record_.parts || packet.len != length_of(packet.part_no)) return false;
  const bool follows = !run_.empty() && packet.part_no == run_first_ + run_.size();
  if ((!follows && !run_.empty()) || run_.size() == kLongestRun) {
    if (!flush()) return true;  // the caller's own flush() reports it
  }
  if (run_.empty()) run_first_ = packet.part_no;
  note_pass(packet.part_no);
  run_.push_back({const_cast<unsigned char*>(packet.data), packet.len});
  return true;
}

bool Transfer::flush() {
  if (!run_.empty() && error_ == 0 && !write_run()) error_ = errno;
  run_.clear();  // its bytes may be gone when the next call comes
  if (error_ != 0) errno = error_;
  return error_ == 0;
}

bool Transfer::write_run() {
  const std::uint64_t last = run_first_ + run_.size() - 1;
  unsaved = true;
  if (are_all_missing(run_first_, last)) {  // the usual case
    missing_.remove(run_first_, last);
    highest_ = std::max(highest_, last);
    count(record_.received_per_pass, run_.size());
    record_.received += run_.size();
    return write_all(fd_.get(), run_, offset_of(run_first_));
  }
  for (std::size_t i = 0; i < run_.size(); ++i) {
    const std::uint64_t part_no = run_first_ + i;
    if (missing_.remove(part_no, part_no) == 0) {
      if (!take_known_part(part_no, run_[i])) ++record_.differing;
      continue;
    }
    count(record_.received_per_pass, 1);
    ++record_.received;
    highest_ = std::max(highest_, part_no);
    if (!write_all(fd_.get(), {run_[i]}, offset_of(part_no))) return false;
  }
  return true;
}

bool Transfer::are_all_missing(std::uint64_t first, std::uint64_t last) const {
  const auto behind = missing_.all().upper_bound(first);
  return behind != missing_.all().begin() && std::prev(behind)->second >= last;
}

/// False if other bytes are stored for it.
bool Transfer::take_known_part(std::uint64_t part_no, const iovec& bytes) {
  count(record_.repeated_per_pass, 1);
  ++record_.repeated;
  return is_stored(fd_.get(), bytes, offset_of(part_no));
}

const TransferRecord& Transfer::record() {
  record_.missing = missing_.text();
  return record_;
}

std::uint64_t Transfer::offset_of(std::uint64_t part_no) const {
  return (part_no - 1) * part_size(record_.udata_size);
}

std::size_t Transfer::length_of(std::uint64_t part_no) const {
  return static_cast<std::size_t>(
      std::min<std::uint64_t>(part_size(record_.udata_size), record_.size - offset_of(part_no)));
}

/// A pass begins with header packets; should all of them be lost, the part
/// numbers fall back by more than reordering explains. Part 0 is a header.
void Transfer::note_pass(std::uint64_t part_no) {
  const bool falls_back =
      part_no < highest_in_pass_ && highest_in_pass_ - part_no > record_.parts / 2;
  if (falls_back) {
    pass_ = std::min(pass_ + 1, kMostPassesTold - 1);
    highest_in_pass_ = 0;
  }
  highest_in_pass_ = std::max(highest_in_pass_, part_no);
}

void Transfer::count(std::vector<std::uint64_t>& per_pass, std::uint64_t parts) {
  if (per_pass.size() <= pass_) per_pass.resize(pass_ + 1);
  per_pass[pass_] += parts;
}
