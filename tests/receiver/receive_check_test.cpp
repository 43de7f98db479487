// `tarnwick-receive check`: mistakes put in one at a time.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

#include "ground/owners.h"
#include "receiver/check/check.h"

namespace fs = std::filesystem;

namespace {

/// A port that was free a moment ago, taken for as long as `fd` lives.
struct Port {
  Port() {
    sockaddr_in at{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t len = sizeof at;
    EXPECT_EQ(0, bind(fd.get(), reinterpret_cast<sockaddr*>(&at), len));
    EXPECT_EQ(0, getsockname(fd.get(), reinterpret_cast<sockaddr*>(&at), &len));
    address = at;
  }
  std::string text() const { return "127.0.0.1:" + std::to_string(ntohs(address.sin_port)); }

  Fd fd{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
  sockaddr_in address{};
};

struct ReceiveCheck : testing::Test {
  ReceiveCheck() {
    fs::create_directories(root + "/in/.tarnwick"), chmod((root + "/in/.tarnwick").c_str(), 0700);
  }
  ~ReceiveCheck() override { fs::remove_all(root); }

  /// Runs it; returns the exit status and what it wrote.
  std::pair<int, std::string> check(const std::string& options) const {
    const std::string command = "cd '" + root + "' && " + RECEIVE + " --into in --listen " +
                                listen + " check --rate 90 " + options + " 2>&1";
    FILE* const pipe = popen(command.c_str(), "re");
    std::string text;
    for (int c = 0; (c = std::fgetc(pipe)) != EOF;) text += static_cast<char>(c);
    return {WEXITSTATUS(pclose(pipe)), text};
  }

  void says(int status, const std::string& options, const std::string& text) const {
    const auto [ended, said] = check(options);
    EXPECT_EQ(status, ended) << options << "\n" << said;
    EXPECT_NE(std::string::npos, said.find(text)) << options << "\n" << said;
  }

  std::string root = mkdtemp(fs::temp_directory_path().append("tarnwick_XXXXXX").string().data());
  std::string listen = Port().text();
};

TEST_F(ReceiveCheck, NamesEachMistakeAndSaysNothingOfAGoodSetting) {
  const auto [ended, said] = check("");
  if (ended == 1 && said.find("the receive buffer of") != std::string::npos)
    GTEST_SKIP() << "net.core.rmem_max leaves no buffer for 90 Mbit/s here";
  EXPECT_EQ(0, ended) << said;
  std::ofstream(root + "/file") << "x";
  says(2, "--no-such-option", "The following argument was not expected");
  says(1, "--rate 200000", "ms of 200000 Mbit/s; 100 ms are wanted");
  says(1, "--datagram 65507", "datagrams of 65507 bytes come in 45 fragments");
  says(2, "--into file/in", "the folder file/in can't be used: Not a directory");
  says(2, "--journals file/x", "the folder file/x can't be used");
  says(2, "--ledger none/l", "the ledger none/l can't be written: No such file");
  says(2, "--log in", "the log in can't be written: it is a folder");
  says(2, "--metrics none/m", "the metrics none/m can't be written");
  says(1, "--reserve 100000T", "in has room for 0 bytes beside the reserve");
  says(1, "--max-file-size 100000T", "in has no room for a file of --max-file-size");
  says(2, "--trust none.pub", "the key none.pub can't be read: No such file");
  says(1, "--wait 50ms", "nothing came within 0.1 s");
  const std::string ledger = root + "/in/.tarnwick/ledger.sqlite";
  std::ofstream{ledger};
  fs::last_write_time(ledger, fs::file_time_type::clock::now() + std::chrono::hours(1));
  says(1, "", "the clock stands before the last change of in/.tarnwick/ledger.sqlite");
  fs::remove(ledger);
  chmod((root + "/in/.tarnwick").c_str(), 0770);
  says(2, "", "the folder in/.tarnwick can't be used: others may write to it");
  chmod((root + "/in/.tarnwick").c_str(), 0700);
  const Port taken;
  says(2, "--listen " + taken.text(), taken.text() + ": bind: Address already in use");
  const Fd hidden(open((root + "/in/.tarnwick").c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(0, flock(hidden.get(), LOCK_EX));
  says(2, "", "another receiver, process " + std::to_string(getpid()) + ", uses the folder in");
}

TEST_F(ReceiveCheck, CreatesNothing) {
  EXPECT_NE(2, check("--into new/in --json").first);
  EXPECT_FALSE(fs::exists(root + "/new"));
  EXPECT_TRUE(fs::is_empty(root + "/in/.tarnwick"));
}

TEST_F(ReceiveCheck, HearsWhetherSomethingComes) {
  Port from;
  sockaddr_in to = from.address;
  to.sin_port = htons(static_cast<std::uint16_t>(std::stoi(listen.substr(10))));
  std::atomic<bool> ended{false};
  std::thread sender([&] {
    while (!ended) {
      (void)sendto(from.fd.get(), "x", 1, 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  });
  EXPECT_NE(std::string::npos, check("--wait 60s").second.find("note: line: datagrams come in"));
  ended = true;
  sender.join();
}

TEST(ReceiveCheckArithmetic, IsThatOfRatesAndFragments) {
  EXPECT_DOUBLE_EQ(1000, milliseconds_held(131'072'000, 1000));
  EXPECT_DOUBLE_EQ(0, fragments_waiting(0, 61'440, 30));
  // 1 - 0.99 for one frame, 1 - 0.99^42 for 42
  EXPECT_NEAR(131'072 * 0.01, fragments_waiting(1, 1472, 1), 0.01);
  EXPECT_NEAR(131'072 * 0.01990, fragments_waiting(1, 1473, 1), 0.01);
  EXPECT_NEAR(131'072 * 0.344341 * 30, fragments_waiting(1, 61'440, 30), 20);
}

}  // namespace
