// What the program says to the system's log when it says nothing else.
#include <sched.h>
#include <sys/mount.h>
#include <sys/un.h>

#include <regex>

#include "tests/program/support.h"

namespace {

/// The socket of the system's log, in a /dev of our own.
struct SystemLog : testing::Test {
  void SetUp() override {
    home.write("tarnwick_cfg", "f:in\nu:1\nd:1\nc:1\n");
    home.write("in/a", "x");
    home.write("list", "127.0.0.1 in " + std::string(70'000, 'd'));
    if (home.ordinary || unshare(CLONE_NEWNS) != 0 ||
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", "/dev", "tmpfs", 0, nullptr) != 0) {
      GTEST_SKIP() << "needs the right to mount";
    }
    const sockaddr_un at{AF_UNIX, "/dev/log"};
    ASSERT_EQ(0, bind(log.get(), reinterpret_cast<const sockaddr*>(&at), sizeof at));
  }
  ~SystemLog() override { umount("/dev"); }

  /// The messages so far, with "PID" for the process id and no time.
  std::string told() const {
    std::string all, buffer(9000, '\0');
    for (ssize_t n; (n = recv(log.get(), buffer.data(), buffer.size(), MSG_DONTWAIT)) > 0;)
      all += buffer.substr(0, static_cast<std::size_t>(n)) + "\n";
    const std::string name = fs::path(home.program()).filename();
    const std::regex changing("(<\\d+>)\\w+ +\\d+ [\\d:]+ " + name + "\\[\\d+\\]: ");
    return std::regex_replace(all, changing, "$1");
  }
  std::string told_by(std::vector<std::string> options) const {
    Program(home, std::move(options)).wait();
    return told();
  }

  TempDir home;
  Fd log{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
};

TEST_F(SystemLog, HearsWhatEndsARunOrCostsAFileAndHoldsNobodyUp) {
  EXPECT_EQ("<27>datagrams of 1 bytes can't be sent: 1400 to 65507 can\n", told_by({"-t:1"}));
  EXPECT_EQ("<27>no address of a receiver: nowhere\n", told_by({"-i:nowhere"}));
  EXPECT_EQ("<27>can't send: Message too long\n", told_by({"-j:list", "-a:cp1251"}));
  EXPECT_EQ("<27>can't open the scan list none\n", told_by({"-j:none"}));
  EXPECT_EQ("<27>can't open lock file /none/" + home.lock().substr(9) + "\n",
            told_by({"--run-dir=/none"}));
  EXPECT_EQ("<27>can't read the configuration file no\\x0Ane\n", told_by({"-o:no\nne"}));
  EXPECT_EQ("<27>can't make the folder of the log a/b/c\n", told_by({"-l:1", "-g:a/b/c"}));
  EXPECT_EQ("<27>the trash journal was not sent\n", told_by({"-m:4"}));
  EXPECT_EQ("<28>can't write the log /\n<28>can't open the folder " + home.path("none\n"),
            told_by({"-l:1", "-g:/", "-f:none", "-r:0"}));
  EXPECT_EQ("", told_by({}));
  home.write("in/\x1b/日", "x");
  const std::string path = home.path("in/\\x1B/日");
  EXPECT_EQ("<28>the name goes out cut: " + path + "\n", told_by({}));
  // a daemon, whose standard descriptors are closed
  std::string heard = told_by({"-m:2", "-f:none", "-c:99"});
  EXPECT_TRUE(eventually([&] { return !(heard += told()).empty(); }));
  EXPECT_EQ("<28>can't open the folder " + home.path("none\n"), heard);
  // a full log holds nobody up
  const Fd other(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const sockaddr_un at{AF_UNIX, "/dev/log"};
  ASSERT_EQ(0, connect(other.get(), reinterpret_cast<const sockaddr*>(&at), sizeof at));
  while (send(other.get(), "x", 1, MSG_DONTWAIT) == 1) continue;  // until it is full
  EXPECT_EQ(255, Program(home, {"-t:1"}).wait());
}

}  // namespace
