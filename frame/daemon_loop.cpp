// The mode "daemon": the same passes in the background, without console or
// keyboard, stopped and frozen through the lock file's record.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <iostream>

#include "frame/cycle.h"
#include "frame/run_modes.h"
#include "frame/scanning.h"
#include "scan/counters.h"
#include "send/socket.h"
#include "softlib/pause.h"
#include "softlib/privileges.h"
#include "softlib/system_log.h"
#include "state/console.h"
#include "state/metrics.h"
#include "state/run_log.h"
#include "state/settings.h"

namespace {

constexpr std::uint32_t kPauseStepUs = 500'000;  // `time_rescan` counts half-seconds here
constexpr std::uint32_t kIdleUs = 100'000;
constexpr std::uint32_t kBeforeEndUs = 500'000;

/// The text is the same whether the folder is empty or not.
void log_walked(const scan_folder& folder) {
  if (files_count != 0) {
    log_plain("\nFolder " + folder.abs_path + " is empty now.\n" + std::to_string(files_count) +
              " files was transfered.\n");
  }
  files_count = 0;
}

class DaemonRules : public PassRules {
 public:
  explicit DaemonRules(Proc& lock) : lock_(lock) { step_us = kPauseStepUs; }

  // a stop request shortens the pauses only: passes go on to their end
  bool goes_on() override { return true; }

  void before_walk(const scan_folder&) override {}

  bool after_walk(const scan_folder& folder) override {
    if (folder.remain < 0) log_plain("folder " + folder.abs_path + " was not found !!!111.\n");
    if (settings.logs > 0) log_walked(folder);
    return true;
  }

  bool cuts_pause_short() override { return lock_.terminated(); }

 private:
  Proc& lock_;
};

void idle_until_next_cycle(Proc& lock, const CycleClock& clock) {
  while (clock.has_time_left() && !lock.terminated()) {
    tell_metrics();
    pause_us(kIdleUs);
  }
}

}  // namespace

int run_daemon(Proc& lock) {
  if (lock.is_already_run()) {
    err_system("another copy is running");
    std::cout << "Can't start in daemon! Already running!" << std::endl;
    return after_pause(kRefused);
  }
  pplock = &lock;
  if (!begin_scanning()) return kRefused;
  CycleClock clock;
  send_close();  // opened only to see whether it works; the daemon opens its own
  say(2) << "start daemon" << std::endl;
  settings.verboze = 0;
  lock.daemon_mode();
  if (send_open() != 0) {
    log_plain("Can't open socket in daemon!");
    return after_pause(kRefused);
  }
  drop_network_admin();
  begin_metrics();

  DaemonRules rules(lock);
  while (!lock.if_terminated_unlock()) {
    make_passes(rules, clock);
    idle_until_next_cycle(lock, clock);
    begin_cycle(clock);
  }
  pause_us(kBeforeEndUs);
  lock.clear_lock_of(getpid());
  std::cout << "stop" << std::endl;
  end_scanning();
  return EXIT_SUCCESS;
}
