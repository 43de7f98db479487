// Passes and cycles, the daemon's pace, and what a start gets ready.
#include "frame/cycle.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "frame/run_modes.h"
#include "frame/scanning.h"
#include "frame/start_up.h"
#include "scan/scan_list.h"
#include "tests/support.h"

namespace {

struct Rules : PassRules {
  bool goes_on() override { return goes; }
  void before_walk(const scan_folder& folder) override { told += folder.ip + "("; }
  bool after_walk(const scan_folder& folder) override {
    told += std::to_string(folder.remain) + ") ";
    return folder.ip != ends_at;
  }
  bool cuts_pause_short() override { return cuts; }
  bool goes = true, cuts = false;
  std::string told, ends_at;
};

struct Cycle : StateTest {
  Cycle() {
    settings.blk_ext = "no", settings.time_wait = 50, settings.time_rescan = 3;
    dir.file("full/f.no"), fs::create_directory(dir.path("empty"));
    scan_list.clear();
    for (const char* name : {"full", "none", "empty"}) {
      scan_folder& folder = scan_list.emplace_back();
      folder.ip = name, folder.abs_path = dir.path(name), folder.remain = 1;
    }
    rules.step_us = 7, rules.steps_per_rescan = 2;
  }
  ~Cycle() override { scan_list.clear(); }
  std::string told() { return std::exchange(rules.told, ""); }
  Rules rules;
};

TEST_F(Cycle, PassesGoOnWhileSomethingIsLeftAndTheCycleLasts) {
  int steps = 0;
  on_pause = [&](std::uint32_t us) { steps += us == 7, time_passed = steps < 15 ? 0 : 51; };
  CycleClock clock;
  make_passes(rules, clock);
  EXPECT_EQ("full(1) none(-1) empty(0) full(1) full(1) ", told());
  EXPECT_EQ(15, steps) << "six between two passes, until the cycle is over";
  EXPECT_EQ("warning: can't open the folder " + dir.path("none") + "\n", system_log);
  begin_cycle(clock);
  EXPECT_TRUE(clock.has_time_left());
  fs::remove(dir.path("full/f.no"));
  make_passes(rules, clock);
  EXPECT_EQ("full(0) none(-1) empty(0) ", told());
  EXPECT_EQ(15, steps) << "nothing is left to wait for";
  EXPECT_EQ(1, std::count(system_log.begin(), system_log.end(), '\n')) << "told once";
  fs::create_directory(dir.path("none"));
  begin_cycle(clock), make_passes(rules, clock);
  fs::remove(dir.path("none"));
  begin_cycle(clock), make_passes(rules, clock);
  EXPECT_EQ(2, std::count(system_log.begin(), system_log.end(), '\n')) << "it had been there";
}

TEST_F(Cycle, RulesEndPassesAndPauses) {
  CycleClock clock;
  rules.goes = false;
  make_passes(rules, clock);
  EXPECT_EQ("", told());
  rules.goes = true, rules.ends_at = "full", settings.time_wait = 0;
  make_passes(rules, clock);
  EXPECT_EQ("full(1) ", told()) << "no others after an end, one pass in a cycle of no length";
  EXPECT_EQ(0, std::count(pauses.begin(), pauses.end(), 7U));
  settings.time_wait = 50;
  struct OnePause : Rules {
    bool cuts_pause_short() override { return goes = false, true; }
  } cut;
  cut.step_us = 7;
  make_passes(cut, clock);
  EXPECT_EQ("full(1) none(-1) empty(0) ", cut.told);
  EXPECT_EQ(0, std::count(pauses.begin(), pauses.end(), 7U)) << "not even one step";
  struct OneFolder : Rules {
    bool after_walk(const scan_folder& folder) override {
      return goes = false, Rules::after_walk(folder);
    }
  } one;
  begin_cycle(clock), make_passes(one, clock);
  EXPECT_EQ("full(1) ", one.told);
}

TEST_F(Cycle, ADaemonCountsRescansInHalfSecondsAndStopsInBetween) {
  settings.send_buffer = 1 << 16, settings.sdir = dir.path("full"), settings.time_rescan = 3;
  const std::string lock = dir.path("d.lock"), told = dir.path("told");
  const pid_t foreground = fork();
  if (foreground == 0) {
    alarm(60);
    on_pause = [&, count = 0](std::uint32_t us) mutable {
      if (++count > 9) _exit(1);
      std::ofstream(told, std::ios::app) << us << " ";
      if (count < 5) return;
      time_passed = 51;  // passes go on to the cycle's end
      if (count == 5) std::fstream(lock, std::ios::in | std::ios::out).seekp(4).put('\1');
    };
    Proc owner("d", dir.root);
    const int status = run_daemon(owner);
    std::ofstream(told, std::ios::app) << "status " << status << "\n";
    _exit(0);
  }
  EXPECT_EQ(foreground, waitpid(foreground, nullptr, 0));
  for (int i = 0; i < 6000 && contents(told).find('\n') + 1 == 0; ++i) usleep(10'000);
  EXPECT_EQ("500000 500000 500000 500000 500000 500000 status 0\n", contents(told))
      << "three of a pause, two until it is asked to stop, and one at its end";
  EXPECT_FALSE(fs::exists(lock));
}

TEST_F(Cycle, AStartOccupiesClosedDescriptorsAndMayOpenAllThatTheSystemAllows) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(60);
    for (const int fd : {0, 1, 2}) close(fd);
    occupy_standard_descriptors();
    int open_ones = 0;
    for (const int fd : {0, 1, 2}) open_ones += fcntl(fd, F_GETFD) >= 0 ? 1 : 0;
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = 50;
    setrlimit(RLIMIT_NOFILE, &limit);
    settings.send_buffer = 1 << 16;
    const bool begun = begin_scanning();
    getrlimit(RLIMIT_NOFILE, &limit);
    _exit(open_ones + (begun ? 10 : 0) + (limit.rlim_cur == limit.rlim_max ? 20 : 0));
  }
  int status = 0;
  EXPECT_EQ(child, waitpid(child, &status, 0));
  EXPECT_EQ(33, WEXITSTATUS(status));
}

}  // namespace
