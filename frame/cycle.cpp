#include "frame/cycle.h"

#include "scan/walk.h"
#include "softlib/clock.h"
#include "softlib/pause.h"
#include "softlib/system_log.h"
#include "state/metrics.h"
#include "state/settings.h"

namespace {

std::int64_t cycle_length_ms() { return std::int64_t{settings.time_wait} * 1000; }

/// Warns once, and again only after the folder was found.
void warn_of_missing(scan_folder& folder) {
  const bool is_missing = folder.remain < 0 && !stop_requested();
  if (is_missing && !folder.is_missing) warn_system("can't open the folder " + folder.abs_path);
  folder.is_missing = is_missing;
}

/// Makes one pass. Returns true if a folder still holds something.
bool make_pass(PassRules& rules) {
  bool again = false;
  for (scan_folder& folder : scan_list) {
    if (!rules.goes_on()) break;
    cur_folder = &folder;
    if (folder.remain <= 0) continue;
    rules.before_walk(folder);
    metrics.waiting = {};
    folder.remain = scan_dir("", folder.abs_path);
    folder.counts.waiting = metrics.waiting;
    if (folder.remain > 0) again = true;
    warn_of_missing(folder);
    if (!rules.after_walk(folder)) break;
  }
  return again;
}

void pause_between_passes(PassRules& rules, const CycleClock& clock) {
  const std::int64_t steps = std::int64_t{settings.time_rescan} * rules.steps_per_rescan;
  for (std::int64_t i = 0; i < steps && !rules.cuts_pause_short() && !clock.is_over(); ++i) {
    tell_metrics();
    pause_us(rules.step_us);
  }
}

}  // namespace

CycleClock::CycleClock() : start_(steady_ms()) {}

void CycleClock::restart() { start_ = steady_ms(); }

std::int32_t CycleClock::elapsed_ms() const {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(steady_ms() - start_));
}

bool CycleClock::is_over() const {
  // with `time_wait` 0 a cycle has one pass, however quick that is
  return settings.time_wait == 0 || elapsed_ms() > cycle_length_ms();
}

bool CycleClock::has_time_left() const { return elapsed_ms() < cycle_length_ms(); }

void make_passes(PassRules& rules, const CycleClock& clock) {
  bool again = true;
  while (again && rules.goes_on()) {
    again = make_pass(rules);
    if (!again) return;
    pause_between_passes(rules, clock);
    if (clock.is_over()) return;
  }
}

void begin_cycle(CycleClock& clock) {
  for (scan_folder& folder : scan_list) folder.remain = 1;
  ++metrics.cycles;
  clock.restart();
}
