#include "receiver/notices.h"

#include <algorithm>
#include <string>

namespace {

constexpr double kProgressInterval = 0.2;  // s

}  // namespace

void Notices::heard(double now) {
  last_heard_ = now;
  silence_told_ = false;
}

void Notices::notice_silence(double now) {
  if (silence_ <= 0 || silence_told_ || now - last_heard_ <= silence_) return;
  silence_told_ = true;
  events_.warning("nothing came for " + std::to_string(static_cast<long>(now - last_heard_)) +
                  " seconds");
}

void Notices::notice_drops(std::uint64_t kernel_drops) {
  if (kernel_drops == drops_told_) return;
  events_.warning("this machine does not keep up: the kernel dropped datagrams " +
                  std::to_string(kernel_drops - drops_told_) + " times");
  drops_told_ = kernel_drops;
}

void Notices::show_progress(const Transfer* transfer, std::uint64_t bytes, double now) {
  if (!events_.shows_progress() || now < next_progress_) return;
  next_progress_ = now + kProgressInterval;
  if (transfer == nullptr) return;
  const double rate = static_cast<double>(bytes - shown_bytes_) / std::max(now - shown_at_, 1e-3);
  shown_bytes_ = bytes;
  shown_at_ = now;
  events_.progress(transfer->counts(), rate, transfer->holes());
}
