// The modes "one scan" and "cycle": in the foreground, with the keyboard.
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <optional>

#include "frame/cycle.h"
#include "frame/run_modes.h"
#include "frame/scanning.h"
#include "scan/counters.h"
#include "softlib/clock.h"
#include "softlib/keyboard.h"
#include "softlib/pause.h"
#include "softlib/privileges.h"
#include "softlib/system_log.h"
#include "state/console.h"
#include "state/metrics.h"
#include "state/run_log.h"
#include "state/settings.h"

namespace {

constexpr std::uint32_t kPauseStepUs = 100'000;
constexpr int kPauseStepsPerSecond = 10;
constexpr std::uint32_t kCycleWaitUs = 10'000;
constexpr std::uint64_t kDotIntervalMs = 1000;

void report_missing(const scan_folder& folder) {
  const std::string text = "folder " + folder.abs_path + " was not found.";
  say(2) << shown(text) << std::endl;
  log_plain(text + "\n");
}

/// At `verboze` 0 shows nothing and does not reset `files_count`.
void report_walked(const scan_folder& folder) {
  if (settings.verboze <= 0) return;
  std::cout << "folder " << shown(folder.abs_path)
            << (folder.remain > 0 ? " IS NOT EMPTY.\n" : " is empty.\n");
  std::cout << files_count << " files was transfered.\n";
  files_count = 0;
}

class ScanRules : public PassRules {
 public:
  ScanRules() {
    step_us = kPauseStepUs;
    steps_per_rescan = kPauseStepsPerSecond;
  }

  bool goes_on() override { return !stop_requested(); }

  void before_walk(const scan_folder& folder) override {
    say(2) << "\nabs_path " << shown(folder.abs_path) << std::endl;
  }

  bool after_walk(const scan_folder& folder) override {
    if (folder.remain < 0 && !stop_requested()) report_missing(folder);
    if (escape_was_pressed()) {
      request_stop();
      return false;
    }
    report_walked(folder);
    return true;
  }

  bool cuts_pause_short() override { return false; }  // not even by the escape key
};

void wait_for_next_cycle(Proc& lock, const CycleClock& clock) {
  std::optional<std::uint64_t> last_dot;
  while (clock.has_time_left()) {
    if (lock.if_terminated_unlock()) {
      say(1) << "\nExtern terminated! "
             << "\n";
      request_stop();
      return;
    }
    if (escape_was_pressed()) {
      request_stop();
      return;
    }
    if (const std::uint64_t now = steady_ms(); !last_dot || now - *last_dot > kDotIntervalMs) {
      say(1) << "." << std::flush;
      last_dot = now;
    }
    tell_metrics();
    pause_us(kCycleWaitUs);
  }
}

}  // namespace

int run_scan_loop(Proc& lock) {
  pplock = &lock;
  if (lock.is_already_run()) {
    err_system("another copy is running");
    std::cout << "Can't start! Another copy is already running!" << std::endl;
    return after_pause(kRefused);
  }
  if (!begin_scanning()) return kRefused;
  drop_network_admin();
  begin_metrics();

  ScanRules rules;
  CycleClock clock;
  while (!stop_requested()) {
    make_passes(rules, clock);
    if (settings.mode != kCycle) break;
    wait_for_next_cycle(lock, clock);
    begin_cycle(clock);
  }
  say(1) << "\n";
  lock.clear_lock();
  end_scanning();
  return EXIT_SUCCESS;
}
