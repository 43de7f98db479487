// receiver/tell/notices.h: what the operator is told as time goes by. All times are
// monotonic, in s.
#pragma once

#include <cstdint>

#include "receiver/assemble/arrival.h"
#include "receiver/take/intake.h"
#include "receiver/tell/events.h"

class Notices {
 public:
  /// Reports to `events`, which must outlive it. Warns when nothing comes for longer than
  /// `silence`, unless that is 0.
  Notices(Events& events, double silence, double now)
      : events_(events), silence_(silence), last_heard_(now) {}

  /// Notes that something came.
  void heard(double now);

  /// Warns once when nothing came for too long.
  void notice_silence(double now);

  /// Warns if datagrams were dropped in this machine since the last call.
  void notice_drops(const IntakeCounts& intake);

  /// A part could not be written: `error` is an errno.
  void unwritten(int error) { write_error_ = error; }

  /// Warns, at most every few seconds, if there are more parts that could not be written,
  /// `parts` in all.
  void notice_unwritten(std::uint64_t parts, double now);

  /// Draws where `arrival` stands, null for none, a few times a second; `bytes`
  /// are all that came so far.
  void show_progress(const Arrival* arrival, std::uint64_t bytes, double now);

 private:
  Events& events_;
  double silence_;
  double last_heard_;
  bool silence_told_ = false;
  IntakeCounts drops_told_;
  int write_error_ = 0;
  std::uint64_t unwritten_told_ = 0;
  double next_unwritten_ = 0;
  double next_progress_ = 0;
  std::uint64_t shown_bytes_ = 0;
  double shown_at_ = 0;
};
