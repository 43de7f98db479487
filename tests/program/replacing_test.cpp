// Another program replaces every file at the moment at which it is removed: no version
// may disappear that was never sent. TARNWICK_RACE_SECONDS=100 makes it a long run.
#include <sys/syscall.h>

#include <cstdlib>
#include <random>
#include <set>

#include "support.h"

/// The files that are sent, and what becomes of their versions. A version is a number.
/// The file's own number says how it is replaced: see replace().
class Replacer : public Receiver {
 public:
  explicit Replacer(const TempDir& home) : home_(home) {
    const timeval patience{0, 20'000};  // us
    setsockopt(sock.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  }

  /// Takes in a datagram, and replaces the file whose version it brings within the time
  /// that its removal takes. False if none came for a while.
  bool take_in(bool replaces) {
    char packet[2000];
    const ssize_t len = recv(sock.get(), packet, sizeof packet, 0);
    if (len <= 20 || packet[8] == 0) return len > 0;  // a header packet
    const long version = number_in(packet + 20);
    if (std::string(packet + 20, packet + len) == content(version)) sent.insert(version);
    if (!replaces) return true;
    for (auto spin = random_() % 60'000; spin > 0; --spin) asm volatile("");
    replace(files_.at(version));
    return true;
  }

  /// Makes every file anew that is gone.
  void refill() {
    for (int file = 0; file < 9; ++file) {
      if (!fs::exists(path(file))) fs::rename(make(file), path(file));
    }
  }

  /// Versions that neither lie in their folder nor were replaced here.
  std::set<long> vanished() const {
    std::set<long> all;
    for (const auto& [version, file] : files_) all.insert(version);
    for (const long version : replaced_) all.erase(version);
    return all;
  }

  std::set<long> sent;

 private:
  std::string path(int file) const { return home_.path("in/f" + std::to_string(file)); }
  static long number_in(const std::string& bytes) {
    return std::strtol(bytes.c_str(), nullptr, 10);
  }
  static std::string content(long version) {
    return std::to_string(version) + std::string(193, '.');
  }
  std::string make(int file) {
    files_[++last_] = file;
    home_.write("made", content(last_));
    fs::create_directories(home_.path("in"));
    return home_.path("made");
  }

  void replace(int file) {
    const std::string made = make(file), old = path(file);
    if (file % 3 == 0 && syscall(SYS_renameat2, AT_FDCWD, made.c_str(), AT_FDCWD, old.c_str(),
                                 2 /* RENAME_EXCHANGE */) == 0) {
      replaced_.push_back(number_in(read_file(made)));
      return;
    }
    replaced_.push_back(number_in(read_file(old)));  // or it is the sender's in this very moment
    if (file % 3 == 1) unlink(old.c_str());
    rename(made.c_str(), old.c_str());
  }

  const TempDir& home_;
  std::mt19937 random_{1};
  long last_ = 1'000'000;
  std::map<long, int> files_;
  std::vector<long> replaced_;
};

struct Replacing : testing::TestWithParam<const char*> {};

TEST_P(Replacing, LosesNoVersionThatWasNotSent) {
  const char* seconds = std::getenv("TARNWICK_RACE_SECONDS");
  const TempDir home;
  Replacer files(home);
  Program program(home, {"-m:1", "-c:0", "-f:in", "-u:1", "-d:1", GetParam(), "-p:" + files.port});
  const auto began = std::chrono::steady_clock::now();
  const std::chrono::seconds least(seconds != nullptr ? std::atoi(seconds) : 1);
  EXPECT_TRUE(eventually([&] {
    for (int i = 0; i < 100 && files.take_in(true); ++i) continue;
    files.refill();
    return files.sent.size() > 100 && std::chrono::steady_clock::now() - began > least;
  }));
  EXPECT_TRUE(eventually([&] { return !files.take_in(false) && fs::is_empty(home.path("in")); }));
  int lost = 0;
  const std::set<long> vanished = files.vanished();
  for (const long version : vanished) lost += files.sent.count(version) == 0 ? 1 : 0;
  std::cout << vanished.size() << " versions disappeared, " << files.sent.size() << " were sent\n";
  EXPECT_LT(5U, vanished.size());
  EXPECT_EQ(0, lost);
}

INSTANTIATE_TEST_SUITE_P(, Replacing, testing::Values("-k:0", "-k:1"));
