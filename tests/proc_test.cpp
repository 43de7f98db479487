#include "proc/proc.h"

#include <sys/wait.h>

#include <fstream>

#include "tests/support.h"

struct Lock : StateTest {
  void SetUp() override {
    if (access("/var/run", W_OK) != 0) GTEST_SKIP() << "needs the right to write /var/run";
  }
  ~Lock() override {
    if (child > 0 && waitpid(child, nullptr, WNOHANG) == 0) kill(child, SIGKILL), wait(nullptr);
    fs::remove(path);
  }

  /// Starts a process that takes the lock and, if it `heeds` them, serves requests.
  void start_owner(bool heeds) {
    on_pause = [this](std::uint32_t us) { usleep(us), waitpid(child, &ended, WNOHANG); };
    if ((child = fork()) == 0) {
      alarm(60);  // outlives no failure
      for (Proc owner(name); !heeds || !owner.if_terminated_unlock();) usleep(1000);
      _exit(0);
    }
    for (int i = 0; i < 10000 && contents(path) != record(child); ++i) usleep(1000);
  }
  void put(const std::string& bytes) const { std::ofstream(path) << bytes; }
  static std::string record(int pid, char stop = 0, char command = 0, char status = 0) {
    std::string bytes{0, 0, 0, 0, stop, 0, command, 0, status, 0, 0, 0};
    for (std::size_t i = 0; i < 4; ++i) bytes[i] = static_cast<char>(pid >> 8 * i);
    return bytes;
  }

  const std::string name = "tarnwick_test_" + std::to_string(getpid());
  const std::string path = "/var/run/" + name + ".lock";
  pid_t child = 0;
  int ended = -1;  ///< its wait status
};

TEST_F(Lock, ServesFreezeThawAndStop) {
  start_owner(true);
  Proc controller(name);
  EXPECT_TRUE(controller.freez(10) && contents(path) == record(child, 0, 2, 2));
  EXPECT_TRUE(controller.unfreez(10) && contents(path) == record(child));
  EXPECT_TRUE(controller.freez(10) && controller.terminate_wait(10000));
  EXPECT_TRUE(ended == 0 && !fs::exists(path));
}

TEST_F(Lock, IsTakenFromAnOwnerWhoDoesNotAnswerOrIsDead) {
  start_owner(false);
  std::string asked;
  on_pause = [&](std::uint32_t) { asked = contents(path); };
  EXPECT_TRUE(Proc(name).is_already_run() && !Proc(name).freez(2) && pauses == Pauses(20, 100000));
  EXPECT_TRUE(asked == record(child, 0, 2) && contents(path) == record(child));
  EXPECT_TRUE(Proc(name).terminate_wait(25) && !fs::exists(path) && pauses.size() == 23);
  EXPECT_TRUE(wait(&ended) == child && asked == record(child, 1, 1) && WTERMSIG(ended) == SIGKILL);
  for (const auto& stale : {record(0, 1), record(1).substr(0, 11), record(child, 1, 3, 2)}) {
    put(stale);
    Proc next(name);
    EXPECT_TRUE(!next.is_already_run() && contents(path) == record(getpid()));
    put(record(getpid(), 7));  // a byte that no bool has
    EXPECT_TRUE(next.if_terminated_unlock() && !fs::exists(path));
  }
}
