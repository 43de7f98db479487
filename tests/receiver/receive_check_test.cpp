// `tarnwick-receive check`: mistakes put in one at a time.
#include <sys/file.h>
#include <sys/stat.h>

#include "program.h"
#include "receiver/check/check.h"

namespace {

struct ReceiveCheck : Receive {
  ReceiveCheck() {
    fs::create_directories(hidden);
    fs::permissions(hidden, fs::perms(0700));
  }
  Strings with(const Strings& more) const {
    Strings all{"--into", "in", "--listen", sender.listen, "check", "--rate", "90"};
    all.insert(all.end(), more.begin(), more.end());
    return all;
  }
  void says(int status, const Strings& more, const std::string& text) const {
    EXPECT_EQ(status, Program(with(more), out).end()) << text << "\n" << contents(out);
    EXPECT_TRUE(program_told(text)) << text << "\n" << contents(out);
  }
  const Sender sender;
};

TEST_F(ReceiveCheck, NamesEachMistakeAndSaysNothingOfAGoodSetting) {
  const int ended = Program(with({}), out).end();
  if (ended == 1 && program_told("the receive buffer of"))
    GTEST_SKIP() << "net.core.rmem_max leaves no buffer for 90 Mbit/s here";
  EXPECT_EQ(0, ended) << contents(out);
  std::ofstream(root / "file") << "x";
  says(2, {"--no-such-option"}, "The following argument was not expected");
  says(1, {"--rate", "200000"}, "ms of 200000 Mbit/s; 100 ms are wanted");
  says(1, {"--datagram", "65507"}, "datagrams of 65507 bytes come in 45 fragments");
  says(2, {"--into", "file/in"}, "the folder file/in can't be used: Not a directory");
  says(2, {"--journals", "file/x"}, "the folder file/x can't be used");
  says(2, {"--ledger", "none/l"}, "the ledger none/l can't be written: No such file");
  says(2, {"--log", "in"}, "the log in can't be written: it is a folder");
  says(2, {"--metrics", "none/m"}, "the metrics none/m can't be written");
  says(1, {"--reserve", "100000T"}, "in has room for 0 bytes beside the reserve");
  says(1, {"--max-file-size", "100000T"}, "in has no room for a file of --max-file-size");
  says(2, {"--trust", "none.pub"}, "the key none.pub can't be read: No such file");
  says(1, {"--wait", "50ms"}, "nothing came within 0.1 s");
  const fs::path old = hidden / "ledger.sqlite";
  std::ofstream{old};
  fs::last_write_time(old, fs::file_time_type::clock::now() + std::chrono::hours(1));
  says(1, {}, "the clock stands before the last change of in/.tarnwick/ledger.sqlite");
  fs::remove(old);
  fs::permissions(hidden, fs::perms(0770));
  says(2, {}, "the folder in/.tarnwick can't be used: others may write to it");
  fs::permissions(hidden, fs::perms(0700));
  const Sender other;
  const Fd taken(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ASSERT_EQ(0, bind(taken.get(), reinterpret_cast<const sockaddr*>(&other.at), sizeof other.at));
  says(2, {"--listen", other.listen}, other.listen + ": bind: Address already in use");
  EXPECT_TRUE(fs::is_empty(hidden)) << "it creates nothing";
  const Fd locked(open(hidden.c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(0, flock(locked.get(), LOCK_EX));
  says(2, {}, "another receiver, process " + std::to_string(getpid()) + ", uses the folder in");
}

TEST_F(ReceiveCheck, CreatesNothing) {
  EXPECT_NE(2, Program(with({"--into", "new/in", "--json"}), out).end()) << contents(out);
  EXPECT_FALSE(fs::exists(root / "new"));
}

TEST_F(ReceiveCheck, HearsWhetherSomethingComes) {
  const Program program(with({"--wait", "60s"}), out);
  EXPECT_TRUE(eventually([&] {
    sender.send({"x"});
    return program_told("note: line: datagrams come in");
  }));
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
