// Another program replaces every file at the moment at which it is removed: no version
// may disappear that was never sent. TARNWICK_RACE_SECONDS=100 makes it a long run.
#include <sys/syscall.h>

#include <cstdlib>
#include <random>
#include <set>

#include "support.h"

enum class Way { kRenameOver, kExchange, kUnlinkAndCreate };

/// The files that are sent, and what becomes of their versions. A version is a number.
class Replacer {
 public:
  Replacer(const TempDir& home, Way way) : home_(home), way_(way) {
    timeval patience{0, 20'000};  // us
    setsockopt(sock_.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    sockaddr_in at{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t len = sizeof at;
    EXPECT_EQ(0, bind(sock_.get(), reinterpret_cast<sockaddr*>(&at), len));
    EXPECT_EQ(0, getsockname(sock_.get(), reinterpret_cast<sockaddr*>(&at), &len));
    port = std::to_string(ntohs(at.sin_port));
    for (int name = 0; name < 8; ++name) fs::rename(make(name), path(name));
  }

  /// Takes in a datagram, and replaces the file whose version it brings within the time
  /// that its removal takes. False if none came for a while.
  bool take_in(bool replaces) {
    char packet[2000];
    const ssize_t len = recv(sock_.get(), packet, sizeof packet, 0);
    if (len <= 20 || packet[8] == 0) return len > 0;  // a header packet
    const long version = std::strtol(packet + 20, nullptr, 10);
    if (std::string(packet + 20, packet + len) == content(version)) sent.insert(version);
    if (!replaces) return true;
    for (auto spin = random_() % 60'000; spin > 0; --spin) asm volatile("");
    replace(names_.at(version));
    return true;
  }

  /// Makes every file anew that is gone.
  void refill() {
    for (int name = 0; name < 8; ++name) {
      if (!fs::exists(path(name))) fs::rename(make(name), path(name));
    }
  }

  /// Versions that neither lie in their folder nor were replaced here.
  std::set<long> vanished() const {
    std::set<long> all;
    for (const auto& [version, name] : names_) all.insert(version);
    for (const long version : replaced_) all.erase(version);
    for (const auto& entry : fs::directory_iterator(home_.path("in")))
      all.erase(std::strtol(read_file(entry.path()).c_str(), nullptr, 10));
    return all;
  }

  std::string port;
  std::set<long> sent;

 private:
  std::string path(int name) const { return home_.path("in/f" + std::to_string(name)); }
  static std::string content(long version) {
    return std::to_string(version) + std::string(200 - std::to_string(version).size(), '.');
  }
  std::string make(int name) {
    names_[++last_] = name;
    home_.write("made", content(last_));
    fs::create_directories(home_.path("in"));
    return home_.path("made");
  }
  void note_replaced(const std::string& file) {
    const std::string bytes = read_file(file);
    if (!bytes.empty()) replaced_.push_back(std::strtol(bytes.c_str(), nullptr, 10));
  }

  void replace(int name) {
    const std::string file = path(name);
    const std::string made = make(name);
    if (way_ == Way::kExchange) {
      if (syscall(SYS_renameat2, AT_FDCWD, made.c_str(), AT_FDCWD, file.c_str(),
                  2 /* RENAME_EXCHANGE */) == 0) {
        note_replaced(made);
      } else {
        rename(made.c_str(), file.c_str());
      }
      return;
    }
    note_replaced(file);  // or it is the sender's in this very moment
    if (way_ == Way::kUnlinkAndCreate) unlink(file.c_str());
    rename(made.c_str(), file.c_str());
  }

  const TempDir& home_;
  const Way way_;
  const Fd sock_{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
  std::mt19937 random_{1};
  long last_ = 1'000'000;
  std::map<long, int> names_;
  std::vector<long> replaced_;
};

struct Replacing : testing::TestWithParam<std::tuple<Way, bool>> {};

TEST_P(Replacing, LosesNoVersionThatWasNotSent) {
  const auto [way, has_trash] = GetParam();
  const char* seconds = std::getenv("TARNWICK_RACE_SECONDS");
  const TempDir home;
  Replacer files(home, way);
  Program program(home, {"-m:1", "-c:0", "-f:in", "-u:1", "-d:1", has_trash ? "-k:1" : "-k:0",
                         "-p:" + files.port});
  const auto end = std::chrono::steady_clock::now() +
                   std::chrono::seconds(seconds != nullptr ? std::atoi(seconds) : 1);
  while (std::chrono::steady_clock::now() < end) {
    if (!files.take_in(true)) files.refill();
  }
  EXPECT_TRUE(eventually([&] { return !files.take_in(false) && fs::is_empty(home.path("in")); }));
  const std::set<long> vanished = files.vanished();
  int lost = 0;
  for (const long version : vanished) lost += files.sent.count(version) == 0 ? 1 : 0;
  std::cout << vanished.size() << " versions disappeared, " << files.sent.size() << " were sent\n";
  EXPECT_GT(vanished.size(), 5U);
  EXPECT_EQ(0, lost);
}

INSTANTIATE_TEST_SUITE_P(, Replacing,
                         testing::Combine(testing::Values(Way::kRenameOver, Way::kExchange,
                                                          Way::kUnlinkAndCreate),
                                          testing::Bool()));
