// Another program replaces every file at the moment at which it is removed: no version
// may disappear that was never sent. TARNWICK_RACE_SECONDS=100 makes it a long run.
#include <sys/syscall.h>

#include <cstdlib>
#include <random>
#include <set>

#include "support.h"

/// Replaces the files that are sent, and knows what becomes of their versions. A version is
/// its content: the file's name, which says how it is replaced, and a number.
struct Replacer : Receiver {
  explicit Replacer(const TempDir& working_folder) : home(working_folder) {
    const timeval patience{0, 20'000};  // us
    setsockopt(sock.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  }

  /// Takes in a datagram, and replaces the file whose version it brings within the time
  /// that its removal takes. False if none came for a while.
  bool take_in(bool replaces) {
    char packet[2000];
    const ssize_t len = recv(sock.get(), packet, sizeof packet, 0);
    if (len <= 20 || packet[8] == 0) return len > 0;  // a header packet
    sent.emplace(packet + 20, packet + len);
    if (!replaces) return true;
    for (auto spin = random() % 60'000; spin > 0; --spin) asm volatile("");
    replace(packet[20]);
    return true;
  }

  void replace(char file) {
    const std::string old = home.path("in/") + file, next = home.path("next");
    const std::string version = file + std::to_string(++count) + std::string(200, '.');
    home.write("next", version);
    made.insert(version);
    if (file % 3 == 0 && syscall(SYS_renameat2, AT_FDCWD, next.c_str(), AT_FDCWD, old.c_str(),
                                 2 /* RENAME_EXCHANGE */) == 0) {
      made.erase(read_file(next));
      return;
    }
    made.erase(read_file(old));  // or it is the sender's in this very moment
    if (file % 3 == 1) unlink(old.c_str());
    fs::create_directories(home.path("in"));
    rename(next.c_str(), old.c_str());
  }

  const TempDir& home;
  std::mt19937 random{1};
  int count = 0;
  std::set<std::string> sent, made;  ///< those that were not replaced
};

struct Replacing : testing::TestWithParam<const char*> {};

TEST_P(Replacing, LosesNoVersionThatWasNotSent) {
  const char* seconds = std::getenv("TARNWICK_RACE_SECONDS");
  const TempDir home;
  Replacer files(home);
  Program program(home, {"-m:1", "-c:0", "-f:in", "-u:1", "-d:1", GetParam(), "-p:" + files.port});
  const auto began = std::chrono::steady_clock::now();
  const std::chrono::seconds least(seconds != nullptr ? std::strtol(seconds, nullptr, 10) : 1);
  EXPECT_TRUE(eventually([&] {
    for (int i = 0; i < 100 && files.take_in(true); ++i) continue;
    for (char file = '0'; file <= '8'; ++file) files.replace(file);
    return files.made.size() > 20 && std::chrono::steady_clock::now() - began > least;
  }));
  EXPECT_TRUE(eventually([&] { return !files.take_in(false) && fs::is_empty(home.path("in")); }));
  std::cout << files.made.size() << " versions disappeared, " << files.sent.size()
            << " were sent\n";
  for (const std::string& version : files.made)
    EXPECT_EQ(1U, files.sent.count(version)) << "lost: " << version;
}

INSTANTIATE_TEST_SUITE_P(, Replacing, testing::Values("-k:0", "-k:1"));
