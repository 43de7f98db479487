#include "proc/proc.h"

#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <fstream>

#include "tests/support.h"

static std::function<void()> on_setsid = [] {};  ///< what a daemon does first of all
static std::function<void()> before_write = [] {}, after_write = [] {};  ///< of a record

pid_t setsid() noexcept {
  on_setsid();
  return static_cast<pid_t>(syscall(SYS_setsid));
}

ssize_t pwrite(int fd, const void* bytes, size_t size, off_t at) {
  before_write();
  const ssize_t result = syscall(SYS_pwrite64, fd, bytes, size, at);
  after_write();
  return result;
}

struct Lock : StateTest {
  ~Lock() override {
    if (child > 0 && waitpid(child, nullptr, WNOHANG) == 0) kill(child, SIGKILL), wait(nullptr);
  }

  /// Starts a process that takes the lock and heeds no request.
  void start_owner() {
    if ((child = fork()) == 0) {
      alarm(300);  // outlives no failure
      for (Proc owner(name, dir.root);;) pause();
    }
    for (int i = 0; i < 60'000 && contents(path) != lock_record(child); ++i) usleep(1000);
  }
  /// Starts a process that becomes a daemon, and waits for its foreground part. The
  /// daemon ends with 0 as soon as it is asked to stop, or with 1 after 60 s.
  void start_daemon() {
    on_pause = [](std::uint32_t us) { usleep(us); };
    prctl(PR_SET_CHILD_SUBREAPER, 1);  // its end is ours to see
    std::fflush(nullptr);              // else written twice
    if ((child = fork()) == 0) {
      alarm(300);
      Proc owner(name, dir.root);
      owner.daemon_mode();
      for (int i = 0; i < 6000 && !owner.terminated(); ++i) usleep(10'000);
      _exit(owner.terminated() ? 0 : 1);
    }
    waitpid(child, &ended, 0);
  }
  void put(const std::string& bytes) const { std::ofstream(path) << bytes; }

  const std::string name = "lock";
  const std::string path = dir.path("lock.lock");
  pid_t child = 0;
  int ended = -1;  ///< its wait status
};

TEST_F(Lock, IsTakenFromAnOwnerWhoIsDead) {
  for (const auto& stale : {lock_record(0, 1), lock_record(-1), lock_record(1).substr(0, 11),
                            lock_record(0x7FFFFFFF, 1, 3, 2)}) {
    put(stale);
    Proc next(name, dir.root);
    EXPECT_FALSE(next.is_already_run());
    EXPECT_EQ(lock_record(getpid()), contents(path));
    put(lock_record(getpid(), 7));  // a byte that no bool has
    EXPECT_TRUE(next.if_terminated_unlock());
    EXPECT_FALSE(fs::exists(path));
  }
}

TEST_F(Lock, TakesARequestAsSoonAsTheForegroundHasEnded) {
  on_setsid = [] { usleep(300'000); };  // it is slow to write its record
  start_daemon();
  EXPECT_EQ(0, ended);
  ask_to_stop(path);
  EXPECT_NE(-1, wait(&ended));
  EXPECT_EQ(0, ended);
  before_write = [] { usleep(200'000); };  // the foreground is
  on_setsid = [this] {
    before_write = [] {}, after_write = [this] { ask_to_stop(path), usleep(500'000); };
  };
  start_daemon();
  EXPECT_NE(-1, wait(&ended));
  EXPECT_EQ(0, ended);
  before_write = [] {};
  on_setsid = [] { _exit(9); };  // it dies before
  start_daemon();
  EXPECT_EQ(0, ended);
  EXPECT_NE(-1, wait(&ended));
  EXPECT_EQ(9, WEXITSTATUS(ended));
  on_setsid = [] {};
}

TEST_F(Lock, IsLeftToACopyThatHasTakenItMeanwhile) {
  start_owner();
  Proc controller(name, dir.root);
  ASSERT_TRUE(controller.is_already_run());
  fs::remove(path);
  put(lock_record(getpid()));
  EXPECT_TRUE(controller.terminate_wait(10));
  EXPECT_EQ(0, waitpid(child, nullptr, WNOHANG));  // it had let go: no need to kill it
  controller.clear_lock_of(controller.owner());
  EXPECT_EQ(lock_record(getpid()), contents(path));
}

TEST_F(Lock, IsNotReadByHalves) {
  start_owner();
  Proc controller(name, dir.root);
  on_pause = [&](std::uint32_t) { put(lock_record(getpid()).substr(0, 4)); };
  EXPECT_FALSE(controller.freez(1));
  EXPECT_EQ(child, controller.owner());
  std::string asked;
  on_pause = [&](std::uint32_t) { asked = contents(path); };
  EXPECT_TRUE(controller.terminate_wait(10));
  EXPECT_EQ(lock_record(child, 1, 1), asked) << "the record is whole again";
}

TEST_F(Lock, OfAStrangerMayNotHaveOthersKilledOrOverwritten) {
  const auto is_refused = [&] {
    EXPECT_EXIT((show_all(), Proc(name, dir.root)), testing::ExitedWithCode(1),
                "^openclose: Cannot open");
  };
  put(lock_record(getpid()));
  if (!give_away(path)) return;  // we are not root
  is_refused();
  int ready[2];
  ASSERT_EQ(0, pipe(ready));
  if ((child = fork()) == 0) {
    alarm(300);
    _exit(setuid(kStranger) == 0 && write(ready[1], "", 1) == 1 ? pause() : 1);
  }
  EXPECT_EQ(1, read(ready[0], ready, 1));
  put(lock_record(child));
  EXPECT_TRUE(Proc(name, dir.root).is_already_run());  // one that the stranger could kill as well
  const std::string other = path + ".other";
  std::ofstream(other) << "untouched";
  const std::function<int()> plants[] = {
      [&] { return symlink(other.c_str(), path.c_str()) + (give_away(path) ? 0 : 1); },
      [&] { return mkfifo(path.c_str(), 0600); },
      [&] { return link(other.c_str(), path.c_str()); }};
  for (const auto& plant : plants) {
    fs::remove(path);
    EXPECT_EQ(0, plant());
    is_refused();
  }
  EXPECT_EQ("untouched", contents(other));
  fs::remove(other);
}
