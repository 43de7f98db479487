// frame/cycle.h: what the scan loop and the daemon have in common: passes over
// the scan list until nothing is left or the cycle's time is up.
#pragma once

#include <cstdint>

#include "state/scan_folder.h"

/// Time since the present cycle began. It is a signed 32-bit number of milliseconds
/// and is compared with `time_wait` seconds.
class CycleClock {
 public:
  CycleClock();
  void restart();
  bool is_over() const;        ///< more than `time_wait` s have passed
  bool has_time_left() const;  ///< fewer than `time_wait` s have passed

 private:
  std::int32_t elapsed_ms() const;

  std::uint64_t start_;
};

/// How a run mode differs from the others in its passes.
class PassRules {
 public:
  virtual ~PassRules() = default;

  /// Called before each pass and each entry; false ends the passes.
  virtual bool goes_on() = 0;

  /// Called before an entry is walked.
  virtual void before_walk(const scan_folder& folder) = 0;

  /// Called after the walk, with its result in `remain`; false ends the pass.
  virtual bool after_walk(const scan_folder& folder) = 0;

  /// Called before each step of the pause between two passes; true ends the pause.
  /// The pause has `time_rescan` x `steps_per_rescan` steps of `step_us`.
  virtual bool cuts_pause_short() = 0;
  std::uint32_t step_us = 0;
  int steps_per_rescan = 1;
};

/// Walks the entries that are due, pass after pass, until all are empty, the
/// cycle is over or the run does not go on.
void make_passes(PassRules& rules, const CycleClock& clock);

/// Makes every entry due again and starts the next cycle.
void begin_cycle(CycleClock& clock);
