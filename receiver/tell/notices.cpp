#include "receiver/tell/notices.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace {

constexpr double kProgressInterval = 0.2;  // s
constexpr double kUnwrittenInterval = 5;   // s

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

void Notices::notice_drops(const IntakeCounts& intake) {
  if (intake.kernel_drops != drops_told_.kernel_drops) {
    events_.warning("this machine does not keep up: the kernel dropped datagrams " +
                    std::to_string(intake.kernel_drops - drops_told_.kernel_drops) + " times");
  }
  if (intake.dropped_datagrams != drops_told_.dropped_datagrams) {
    events_.warning("disk or ledger do not keep up and the memory (--memory) is full: dropped " +
                    std::to_string(intake.dropped_datagrams - drops_told_.dropped_datagrams) +
                    " datagrams, of " +
                    std::to_string(intake.dropped_transfers - drops_told_.dropped_transfers) +
                    " newly dropped transfers and of earlier ones");
  }
  drops_told_ = intake;
}

void Notices::notice_unwritten(std::uint64_t parts, double now) {
  if (parts == unwritten_told_ || now < next_unwritten_) return;
  next_unwritten_ = now + kUnwrittenInterval;
  events_.warning(std::to_string(parts - unwritten_told_) + " parts could not be written (" +
                  std::strerror(write_error_) + "): they are missing until a later pass");
  unwritten_told_ = parts;
}

void Notices::show_progress(const Arrival* arrival, std::uint64_t bytes, double now) {
  if (!events_.shows_progress() || now < next_progress_) return;
  next_progress_ = now + kProgressInterval;
  if (arrival == nullptr) return;
  const double rate = static_cast<double>(bytes - shown_bytes_) / std::max(now - shown_at_, 1e-3);
  shown_bytes_ = bytes;
  shown_at_ = now;
  events_.progress(arrival->counts(), rate, arrival->holes());
}
