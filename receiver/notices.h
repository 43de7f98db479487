// receiver/notices.h: what the operator is told as time goes by. All times are
// monotonic, in s.
#pragma once

#include <cstdint>

#include "receiver/events.h"
#include "receiver/transfer.h"

class Notices {
 public:
  /// Tells by `events`, which must outlive it; of a line that says nothing for
  /// longer than `silence`, or not if that is 0.
  Notices(Events& events, double silence, double now)
      : events_(events), silence_(silence), last_heard_(now) {}

  /// Something came.
  void heard(double now);

  /// Warns once when nothing came for too long.
  void notice_silence(double now);

  /// Warns if the kernel's count of drops has grown.
  void notice_drops(std::uint64_t kernel_drops);

  /// Draws where `transfer` stands, null for none, a few times a second; `bytes`
  /// are all that came so far.
  void show_progress(const Transfer* transfer, std::uint64_t bytes, double now);

 private:
  Events& events_;
  double silence_;
  double last_heard_;
  bool silence_told_ = false;
  std::uint64_t drops_told_ = 0;
  double next_progress_ = 0;
  std::uint64_t shown_bytes_ = 0;
  double shown_at_ = 0;
};
