// The program on a terminal, as the job of a shell.
#include <pty.h>
#include <termios.h>

#include <csignal>

#include "tests/program/support.h"

namespace {

struct Terminal : testing::Test {
  TempDir home;
  Collector net;
  Fd master;
  pid_t shell = 0;  ///< leads the terminal's session
  pid_t job = 0;

  void SetUp() override {
    if (access("/dev/ptmx", R_OK | W_OK) != 0) GTEST_SKIP() << "needs a pseudo-terminal";
    setenv("LC_ALL", "C.UTF-8", 1);
    const char* unprivileged = home.ordinary ? "--send-buffer=64K\n--run-dir=.\n" : "";
    home.write("tarnwick_cfg",
               "p:" + net.port + "\nf:in\nu:1\nd:1\nc:1\nv:1\nm:1\n" + unprivileged);
  }
  ~Terminal() override { end_shell(); }

  /// A shell that runs the program as a job, tells its id, and waits for its end.
  void start(bool in_foreground) {
    int told[2], terminal = -1;
    ASSERT_EQ(0, pipe2(told, O_CLOEXEC));
    const Fd reader(told[0]), writer(told[1]);
    shell = forkpty(&terminal, nullptr, nullptr, nullptr);
    ASSERT_LE(0, shell);
    if (shell == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      std::signal(SIGTTOU, SIG_IGN);
      job = fork();
      if (job == 0) run();
      setpgid(job, job);
      if (in_foreground) tcsetpgrp(0, job);
      if (write(writer.get(), &job, sizeof job) != sizeof job) _exit(1);
      int status = 0;
      waitpid(job, &status, 0);
      _exit(WIFSIGNALED(status) ? WTERMSIG(status) : 0);
    }
    master = Fd(terminal);
    EXPECT_EQ(static_cast<ssize_t>(sizeof job), read(reader.get(), &job, sizeof job));
  }
  [[noreturn]] void run() const {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    std::signal(SIGTTOU, SIG_DFL);
    while (getpgrp() != getpid()) continue;
    if (chdir(home.path("").c_str()) == 0) execl(TARNWICK, home.program().c_str(), nullptr);
    _exit(127);
  }

  /// How the job ended, as its shell tells it.
  int end_shell() {
    if (shell <= 0) return -1;
    int status = -1;
    const auto ended = [&] { return drain(), waitpid(shell, &status, WNOHANG) != 0; };
    if (!eventually(ended)) kill(shell, SIGKILL), waitpid(shell, &status, 0);
    shell = 0;
    return WEXITSTATUS(status);
  }

  void type(const std::string& keys) const {
    EXPECT_EQ(static_cast<ssize_t>(keys.size()), write(master.get(), keys.data(), keys.size()));
  }
  /// Takes what the program shows, so that it does not wait for room.
  void drain() {
    char buffer[4096];
    for (pollfd ready{master.get(), POLLIN, 0}; poll(&ready, 1, 0) > 0 && ready.revents & POLLIN;) {
      const ssize_t got = read(master.get(), buffer, sizeof buffer);
      if (got <= 0) return;
      shown.append(buffer, static_cast<std::size_t>(got));
    }
  }
  bool has_shown(const std::string& text) { return drain(), shown.find(text) != std::string::npos; }

  std::string shown;
};

TEST_F(Terminal, IsLeftAloneByABackgroundJob) {
  start(false);
  type("\x1b\n");                       // for whoever has the terminal
  home.write("in/\x1b[2J\xff日", "x");  // would clear the screen
  const std::string stat = "/proc/" + std::to_string(job) + "/stat";
  EXPECT_TRUE(eventually([&] { return has_shown("is empty.\r\n1 files was transfered.\r\n."); }));
  EXPECT_TRUE(has_shown("file " + home.path("in/\\x1B[2J\\xFF日 was removed.")));
  EXPECT_EQ(std::string::npos, shown.find('\x1b'));
  EXPECT_EQ(std::string::npos, read_file(stat).find(") T "));
  kill(job, SIGTERM);
  EXPECT_EQ(SIGTERM, end_shell());
}

TEST_F(Terminal, KeepsItsEchoHoweverOftenTheProgramIsInterrupted) {
  fs::create_directory(home.path("in"));
  for (int i = 0; i < 40; ++i) {
    home.write("in/a", "");
    fs::resize_file(home.path("in/a"), 200'000'000);
    shown.clear();
    start(true);
    EXPECT_TRUE(eventually([&] { return has_shown(" %"); }));
    type("\x03");
    EXPECT_EQ(SIGINT, end_shell()) << shown;
    termios now{};
    EXPECT_EQ(0, tcgetattr(master.get(), &now));
    ASSERT_EQ(tcflag_t{ECHO | ICANON}, now.c_lflag & (ECHO | ICANON)) << i;
  }
}

}  // namespace
