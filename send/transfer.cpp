#include "send/transfer.h"

#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <ostream>

#include "send/pacing.h"
#include "send/segments.h"
#include "send/service_packet.h"
#include "send/socket.h"
#include "send/stop_check.h"
#include "send/wire_format.h"
#include "softlib/keyboard.h"
#include "softlib/pause.h"
#include "state/console.h"
#include "state/settings.h"

namespace {

constexpr std::uint32_t kAfterHeaderUs = 10'000;
constexpr int kProgressStep = 5;  // percent

/// Shows how far a pass is, in steps of 5 % where there are that many parts.
class Progress {
 public:
  void show(std::uint64_t part_no, std::uint64_t parts) {
    const int percent = static_cast<int>(part_no * 100 / parts);
    if (percent / kProgressStep * kProgressStep == last_) return;
    last_ = percent;  // not rounded: 1, 2, 3, 4, 5, 10, 15 ... for 100 parts
    say(1) << "\r" << percent << " %" << std::flush;
  }

 private:
  int last_ = -1;
};

int report_send_error(const char* text) {
  const int err = SockErrcode();  // before any output changes it
  say(1) << text << err << "  " << std::strerror(err) << "\n";
  return kSocketError;
}

}  // namespace

Transfer::Transfer(const std::string& path, const std::string& pth, const SourceFile& file,
                   const sockaddr_in& to, const file_info& info)
    : path_(path),
      file_(file),
      to_(to),
      info_(info),
      header_(build_header_packet(info, path, pth)),
      parts_(part_count(static_cast<std::uint64_t>(info.file_size),
                        static_cast<std::uint32_t>(settings.udata_size))),
      parts_buffer_(info.transfer_id, static_cast<std::uint32_t>(settings.udata_size)) {}

int Transfer::send_pass() {
  if (const int result = send_headers(); result != kSent) return result;
  if (check2break()) return kNotSent;
  if (const int result = send_data(); result != kSent) return result;
  say(1) << "\n file parts: " << parts_ << "    send_packs: " << send_packs_ << "\n";
  return kSent;
}

int Transfer::send_headers() {
  for (int i = 0; i < settings.head_send; ++i) {
    if (check2break()) return kNotSent;
    if (send(header_.data(), header_.size()) < 0) return report_send_error("\nError sendto(): ");
    count_sent();
    pause_us(kAfterHeaderUs);
  }
  return kSent;
}

int Transfer::send_data() {
  auto left = static_cast<std::uint64_t>(info_.file_size);
  Progress progress;
  file_.rewind();
  std::uint64_t due = GetNanoTime() + delay_target;
  std::uint64_t part_no = 1;
  while (left > 0) {
    const std::size_t wanted = next_batch(part_no);
    // read before the wait: what the disk takes must not make the packet late
    const std::size_t count = parts_buffer_.fill(file_, part_no, wanted, left);
    if (is_paced() && count > 0) due = wait_until(due) + delay_target;
    if (const int result = send_parts(count); result != kSent) return result;
    if (count < wanted) {
      say(1) << "\nFile " << path_ << " could not be read as far as it was measured.";
      return kNotSent;
    }
    left -= parts_buffer_.payload(count);
    part_no += count;
    if (settings.verboze > 0) {
      progress.show(part_no - 1, parts_);
      if (escape_was_pressed()) return kEscape;
    }
  }
  return kSent;
}

/// Parts that may go out in one call: more than one where nothing has to happen
/// between them.
std::size_t Transfer::next_batch(std::uint64_t part_no) const {
  if (is_paced() || settings.verboze > 0 || !segments_are_usable()) return 1;
  const std::uint64_t most = std::min(parts_ - part_no + 1, datagrams_to_service());
  return static_cast<std::size_t>(std::min<std::uint64_t>(most, parts_buffer_.room()));
}

int Transfer::send_parts(std::size_t count) {
  if (count > 1) {
    const std::size_t size = parts_buffer_.payload(count) + count * kHeaderSize;
    const auto segment = static_cast<std::uint16_t>(settings.udata_size);
    const ssize_t sent = send_segments(parts_buffer_.datagram(0), size, segment, to_);
    if (sent >= 0 || segments_are_usable()) return settle_send(sent, size, count);
  }
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t size = parts_buffer_.size(i);
    const int result = settle_send(send(parts_buffer_.datagram(i), size), size, 1);
    if (result != kSent) return result;
  }
  return kSent;
}

/// Reports a failed or short send, or counts the `count` datagrams that went out.
int Transfer::settle_send(ssize_t sent, std::size_t size, std::size_t count) {
  if (sent < 0) return report_send_error("\nError sendto(): ");
  if (static_cast<std::size_t>(sent) < size) {
    return report_send_error("\nError sendto() (sent size < try size): ");
  }
  for (std::size_t i = 0; i < count; ++i) count_sent();
  return kSent;
}

ssize_t Transfer::send(const unsigned char* packet, std::size_t size) const {
  return sendto(sock, packet, size, 0, reinterpret_cast<const sockaddr*>(&to_), sizeof to_);
}

void Transfer::count_sent() {
  ++send_packs_;
  serv_pack_send();
}
