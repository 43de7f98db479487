#include "send/transfer.h"

#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <ostream>
#include <utility>

#include "send/pacing.h"
#include "send/segments.h"
#include "send/service_packet.h"
#include "send/socket.h"
#include "send/stop_check.h"
#include "softlib/keyboard.h"
#include "softlib/pause.h"
#include "softlib/system_log.h"
#include "state/console.h"
#include "state/metrics.h"
#include "state/scan_folder.h"
#include "state/settings.h"
#include "wire/wire_format.h"

namespace {

constexpr int kProgressStep = 5;  // percent

/// Shows how far a pass has come, in steps of 5 % if there are enough parts.
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

/// Counts a transfer that a stop request or the escape key ends, and returns `result`.
int interrupted(int result) {
  ++metrics.failed[kInterrupted];
  return result;
}

int report_send_error(const char* text) {
  const int err = SockErrcode();  // before any output changes it
  ++metrics.failed[kSocketRefused];
  err_system(std::string("can't send: ") + std::strerror(err));
  say(1) << text << err << "  " << std::strerror(err) << "\n";
  return kSocketError;
}

}  // namespace

Transfer::Transfer(std::vector<unsigned char> header, Content& content, const sockaddr_in& to,
                   const file_info& info)
    : content_(content),
      to_(to),
      header_(std::move(header)),
      parts_(content, static_cast<std::uint64_t>(info.file_size), info.transfer_id,
             static_cast<std::uint32_t>(settings.udata_size)) {}

int Transfer::send_pass() {
  if (const int result = send_headers(); result != kSent) return result;
  if (check2break()) return interrupted(kNotSent);
  if (const int result = send_data(); result != kSent) return result;
  say(1) << "\n file parts: " << parts_.parts() << "    send_packs: " << send_packs_ << "\n";
  return kSent;
}

int Transfer::send_headers() {
  for (int i = 0; i < settings.head_send; ++i) {
    if (check2break()) return interrupted(kNotSent);
    if (send(header_.data(), header_.size()) < 0) return report_send_error("\nError sendto(): ");
    count_sent();
    tell_metrics();
    pause_us(kAfterHeaderUs);
  }
  return kSent;
}

int Transfer::send_data() {
  Progress progress;
  parts_.rewind();
  Pacer pacer(delay_target, GetNanoTime());
  while (!parts_.at_end()) {
    const std::size_t wanted = next_batch();
    // read before the wait, so that a slow disk does not make the packet late
    const std::size_t count = parts_.fill(wanted);
    // not while a packet is due, since it would be late
    if (metrics_are_due() && !(is_paced() && pacer.is_due(GetNanoTime()))) tell_metrics();
    if (is_paced() && count > 0) pacer.wait();
    if (const int result = send_parts(count); result != kSent) return result;
    if (count < wanted) return content_.end_short();
    if (settings.verboze > 0) {
      progress.show(parts_.parts_read(), parts_.parts());
      if (escape_was_pressed()) return interrupted(kEscape);
    }
  }
  return kSent;
}

/// Returns how many parts may go out in one call: more than one only if nothing has to
/// happen between them. With an ordinary send buffer it is always one, since several at
/// once overrun a receiver whose buffer is an ordinary one, too.
std::size_t Transfer::next_batch() const {
  const bool one_by_one = is_paced() || settings.send_buffer > 0 || settings.verboze > 0;
  if (one_by_one || !segments_are_usable()) return 1;
  const std::uint64_t most = std::min(parts_.parts() - parts_.parts_read(), datagrams_to_service());
  return static_cast<std::size_t>(std::min<std::uint64_t>(most, parts_.room()));
}

int Transfer::send_parts(std::size_t count) {
  if (count > 1) {
    const std::size_t size = parts_.payload(count) + count * kHeaderSize;
    const auto segment = static_cast<std::uint16_t>(settings.udata_size);
    const auto sent = send_segments(parts_.datagram(0), size, segment, to_);
    if (sent) return settle_send(*sent, size, count);
  }
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t size = parts_.size(i);
    const int result = settle_send(send(parts_.datagram(i), size), size, 1);
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
  metrics.parts_sent += count;
  return kSent;
}

ssize_t Transfer::send(const unsigned char* packet, std::size_t size) const {
  return sendto(sock, packet, size, 0, reinterpret_cast<const sockaddr*>(&to_), sizeof to_);
}

void Transfer::count_sent() {
  ++send_packs_;
  ++cur_folder->counts.datagrams;
  serv_pack_send();
}
