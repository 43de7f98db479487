#include "send/transfer.h"

#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <ostream>

#include "send/pacing.h"
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
constexpr std::size_t kWorkBufferSize = 65'536;
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
      work_(kWorkBufferSize) {}

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
  const std::uint32_t full = part_size(static_cast<std::uint32_t>(settings.udata_size));
  auto left = static_cast<std::uint64_t>(info_.file_size);
  Progress progress;
  file_.rewind();
  std::uint64_t due = GetNanoTime() + delay_target;
  for (std::uint64_t part_no = 1; left > 0; ++part_no) {
    if (is_paced()) due = wait_until(due) + delay_target;
    const auto len = static_cast<std::uint32_t>(std::min<std::uint64_t>(left, full));
    if (const int result = send_part(part_no, len); result != kSent) return result;
    left -= len;
    if (settings.verboze > 0) {
      progress.show(part_no, parts_);
      if (escape_was_pressed()) return kEscape;
    }
  }
  return kSent;
}

int Transfer::send_part(std::uint64_t part_no, std::uint32_t len) {
  unsigned char* data = put_header(work_.data(), info_.transfer_id, part_no, len);
  if (!file_.read(data, len)) {
    say(1) << "\nFile " << path_ << " could not be read as far as it was measured.";
    return kNotSent;
  }
  const std::size_t size = kHeaderSize + len;
  const ssize_t sent = send(work_.data(), size);
  if (sent < 0) return report_send_error("\nError sendto(): ");
  if (static_cast<std::size_t>(sent) < size) {
    return report_send_error("\nError sendto() (sent size < try size): ");
  }
  count_sent();
  return kSent;
}

ssize_t Transfer::send(const unsigned char* packet, std::size_t size) const {
  return sendto(sock, packet, size, 0, reinterpret_cast<const sockaddr*>(&to_), sizeof to_);
}

void Transfer::count_sent() {
  ++send_packs_;
  serv_pack_send();
}
