// Passes and cycles, the daemon's pace, and what a start gets ready.
#include "frame/cycle.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>

#include "frame/run_modes.h"
#include "frame/scanning.h"
#include "frame/start_up.h"
#include "ground/owners.h"
#include "scan/scan_list.h"
#include "tests/support.h"

static int kill_error = 0;  ///< why nobody may be killed

int kill(pid_t pid, int signal) noexcept {
  if (kill_error == 0) return static_cast<int>(syscall(SYS_kill, pid, signal));
  errno = kill_error;
  return -1;
}

namespace {

struct Rules : PassRules {
  Rules() { step_us = 7, steps_per_rescan = 2; }
  bool goes_on() override { return goes; }
  void before_walk(const scan_folder& folder) override { told += folder.ip + "("; }
  bool after_walk(const scan_folder& folder) override {
    told += std::to_string(folder.remain) + ") ";
    goes = goes && folder.ip != stops_at;
    return folder.ip != ends_at;
  }
  bool cuts_pause_short() override {
    goes = goes && !cuts;
    return cuts;
  }
  bool goes = true, cuts = false;
  std::string told, stops_at, ends_at;
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
    on_pause = [this](std::uint32_t us) { steps += us == 7, time_passed = steps < 15 ? 0 : 51; };
  }
  ~Cycle() override { scan_list.clear(); }
  /// What these rules are told of in one cycle.
  static std::string told(Rules rules) {
    CycleClock clock;
    begin_cycle(clock), make_passes(rules, clock);
    return rules.told;
  }
  int steps = 0;  ///< of pauses between passes
};

TEST_F(Cycle, PassesGoOnWhileSomethingIsLeftAndTheCycleLasts) {
  const std::string warning = "warning: can't open the folder " + dir.path("none") + "\n";
  EXPECT_EQ("full(1) none(-1) empty(0) full(1) full(1) ", told({}));
  EXPECT_EQ(15, steps) << "six between two passes, until the cycle is over";
  EXPECT_EQ(warning, system_log);
  fs::remove(dir.path("full/f.no"));
  EXPECT_EQ("full(0) none(-1) empty(0) ", told({}));
  EXPECT_EQ(15, steps) << "nothing is left to wait for";
  EXPECT_EQ(warning, system_log) << "told once";
  fs::create_directory(dir.path("none"));
  told({});
  fs::remove(dir.path("none"));
  told({});
  EXPECT_EQ(warning + warning, system_log) << "it had been there";
}

TEST_F(Cycle, RulesEndPassesAndPauses) {
  Rules stopped, stopping, cutting, ending;
  stopped.goes = false, stopping.stops_at = ending.ends_at = "full", cutting.cuts = true;
  EXPECT_EQ("", told(stopped));
  EXPECT_EQ("full(1) none(-1) empty(0) ", told(cutting));
  EXPECT_EQ(0, steps) << "not even one step";
  EXPECT_EQ("full(1) ", told(stopping));
  settings.time_wait = steps = 0;
  EXPECT_EQ("full(1) ", told(ending)) << "no others after an end, one pass in a cycle of no length";
  EXPECT_EQ(0, steps);
}

TEST_F(Cycle, IsMeasuredByAClockThatNobodySets) {
  const CycleClock clock;
  for (const std::time_t step : {-3600, 3600, 25 * 86'400}) {
    clock_stepped = step;
    for (const std::time_t passed : {0, 51}) {
      time_passed = passed;
      EXPECT_EQ(passed == 0, clock.has_time_left()) << step;
      EXPECT_EQ(passed != 0, clock.is_over()) << step;
    }
  }
}

TEST_F(Cycle, ADaemonCountsRescansInHalfSecondsAndStopsInBetween) {
  settings.send_buffer = 1 << 16, settings.sdir = dir.path("full");
  const std::string lock = dir.path("d.lock"), told = dir.path("told");
  const pid_t foreground = fork();
  if (foreground == 0) {
    alarm(300);
    on_pause = [&, count = 0](std::uint32_t us) mutable {
      if (++count > 9) _exit(1);
      std::ofstream(told, std::ios::app) << us << " ";
      if (count == 5) fs::remove(dir.path("full/f.no")), ask_to_stop(lock);
      if (count == 6) std::ofstream(lock) << "a successor's";
    };
    Proc owner("d", dir.root);
    const int status = run_daemon(owner);
    std::ofstream(told, std::ios::app) << "status " << status << "\n";
    _exit(0);
  }
  EXPECT_EQ(foreground, waitpid(foreground, nullptr, 0));
  for (int i = 0; i < 30'000 && contents(told).find('\n') + 1 == 0; ++i) usleep(10'000);
  EXPECT_EQ("500000 500000 500000 500000 500000 500000 status 0\n", contents(told))
      << "three of a pause, two until it is asked to stop, and one at its end";
  EXPECT_EQ("a successor's", contents(lock));
}

TEST_F(Cycle, AForegroundShowsDotsInItsPausesUntilEscapeOrAStop) {
  settings.send_buffer = 1 << 16, settings.sdir = dir.path("empty"), settings.verboze = 1;
  int keys[2];
  ASSERT_EQ(0, pipe(keys));
  const Fd stdin_kept(dup(0)), reader(keys[0]), writer(keys[1]);
  dup2(reader.get(), 0);
  const std::string walked = "folder " + settings.sdir + " is empty.\n0 files was transfered.\n";
  for (const bool by_key : {false, true}) {
    on_pause = [&, count = 0](std::uint32_t) mutable {
      time_passed = ++count / 3 * 2L;  // three looks in two seconds
      if (count > 99) throw std::runtime_error("it goes on");
      if (count != 8) return;
      by_key ? (void)!write(writer.get(), "\x1b", 1) : ask_to_stop(dir.path("f.lock"));
    };
    time_passed = 0, settings.mode = kCycle, console.str("");
    Proc lock("f", dir.root);
    EXPECT_EQ(0, run_scan_loop(lock));
    const std::string end = by_key ? "\n" : "\nExtern terminated! \n\n";
    EXPECT_EQ(walked + "..." + end, console.str());
  }
  dup2(stdin_kept.get(), 0);
}

/// Lock files of others, with pauses in which their owners do something or not.
struct Controller : Cycle {
  Controller() { settings.send_buffer = 1 << 16; }
  ~Controller() override { kill_error = 0; }
  void start_owner() {
    owner = fork();
    if (owner == 0) {
      alarm(300);  // outlives no failure
      for (;;) pause();
    }
    put(lock_record(owner));
  }
  void put(const std::string& record) const { std::ofstream(path) << record; }
  /// What this mode tells and its status.
  std::string told(int (*mode)(Proc&)) {
    console.str("");
    Proc lock("c", dir.root);
    const int status = mode(lock);
    return console.str() + std::to_string(status);
  }
  const std::string path = dir.path("c.lock");
  pid_t owner = 0;
};

TEST_F(Controller, LetsGoOfTheLockBeforeItsLastPause) {
  on_pause = [this](std::uint32_t) { EXPECT_FALSE(fs::exists(path)); };
  EXPECT_EQ("nothing to stop!\n0", told(run_stop));
  EXPECT_EQ("-1", told(run_trash_journal)) << "there is none";
  EXPECT_EQ(Pauses(2, 2'000'000), pauses);
}

TEST_F(Controller, TellsWhatAnOwnerDoesNotDoAndKillsIt) {
  start_owner();
  const std::string freezing = "Already running! trying to freez...\n";
  EXPECT_EQ(freezing + "Error! Not frozzen!\n-1", told(run_trash_journal));
  EXPECT_EQ(lock_record(owner), contents(path));
  on_pause = [this](std::uint32_t) { put(lock_record(owner, 0, 0, 2)); };
  EXPECT_EQ(freezing + "OK!  frozzen!\nTrying to unfreez...\nError! Not unfrozzen!\n-1",
            told(run_trash_journal));
  on_pause = [](std::uint32_t) {};
  kill_error = EPERM;
  const std::string stopping = "Already running! trying to stop...\n";
  EXPECT_EQ(stopping + "ERROR!  is not stoped!\n-1", told(run_stop));
  EXPECT_EQ(lock_record(owner, 1, 1, 2), contents(path));
  kill_error = 0, pauses.clear();
  EXPECT_EQ(stopping + "OK!  stoped!\n0", told(run_stop));
  EXPECT_EQ(101U, pauses.size()) << "1 s, and one for the message";
  int status = 0;
  EXPECT_EQ(owner, waitpid(owner, &status, 0));
  EXPECT_EQ(SIGKILL, status);
  EXPECT_FALSE(fs::exists(path));
}

TEST_F(Cycle, AStartOccupiesClosedDescriptorsAndMayOpenAllThatTheSystemAllows) {
  const auto start = [] {
    for (const int fd : {0, 1, 2}) close(fd);
    occupy_standard_descriptors();
    for (const int fd : {0, 1, 2}) {
      if (fcntl(fd, F_GETFD) < 0) _exit(1);
    }
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = 50;
    setrlimit(RLIMIT_NOFILE, &limit);
    settings.send_buffer = 1 << 16;
    if (!begin_scanning()) _exit(2);
    getrlimit(RLIMIT_NOFILE, &limit);
    _exit(limit.rlim_cur == limit.rlim_max ? 0 : 3);
  };
  EXPECT_EXIT(start(), testing::ExitedWithCode(0), "");
}

}  // namespace
