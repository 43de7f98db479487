// The receiver as a whole: in this process, fed without a socket, and as the
// program, over 127.0.0.1. The wire is written down here once more, on purpose.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/udp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <cmath>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <nlohmann/json.hpp>

#include "receiver/receiver.h"
#include "relay.h"

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;

namespace {

std::string le(std::uint64_t value, unsigned bytes) {
  std::string text;
  for (; bytes > 0; --bytes, value >>= 8) text += static_cast<char>(value & 0xFF);
  return text;
}

std::string datagram(std::uint64_t id, std::uint64_t part_no, const std::string& body) {
  return le(id, 8) + le(part_no, 8) + le(body.size(), 4) + body;
}

/// The same for the same `seed`, up to 2 MB.
std::string random_bytes(std::size_t size, std::size_t seed) {
  static const std::string pool = [] {
    std::mt19937 random;
    std::string bytes;
    while (bytes.size() < 3'000'000) bytes += le(random(), 4);
    return bytes;
  }();
  return pool.substr(seed * 7919 % 1'000'000, size);
}

struct File {
  std::uint64_t id;
  std::string name, bytes, folder = "";
  std::uint64_t udata = 1400, kind = 0;

  std::string header() const {
    return datagram(id, 0,
                    le(bytes.size(), 8) + le(~0ULL, 8) + le(udata, 4) + le(id + 1, 4) + le(9, 8) +
                        le(kind, 2) + std::string(30, '\0') + name + '\0' +
                        (folder.empty() ? "" : folder + '\0') + '\0');
  }
  std::uint64_t parts() const { return (bytes.size() + udata - 21) / (udata - 20); }
  std::string part(std::uint64_t n) const {
    return datagram(id, n, bytes.substr((n - 1) * (udata - 20), udata - 20));
  }
  Strings pass(std::size_t headers = 1, std::uint64_t first = 1, std::uint64_t last = 9999) const {
    Strings sent(headers, header());
    for (; first <= std::min(last, parts()); ++first) sent.push_back(part(first));
    return sent;
  }
  std::string journal_line() const {
    char text[32];
    std::snprintf(text, sizeof text, "0000000009%08X0000%08X ", static_cast<unsigned>(id),
                  static_cast<unsigned>(id + 1));
    return text + name + "\n";
  }
};

std::vector<char*> to_argv(Strings& arguments) {
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  return argv;
}

std::string contents(const fs::path& path) {
  std::ostringstream bytes;
  bytes << std::ifstream(path, std::ios::binary).rdbuf();
  return bytes.str();
}

/// Waits up to 60 s for it to hold; false if it never did.
bool eventually(const std::function<bool()>& holds) {
  for (int i = 0; i < 12'000 && !holds(); ++i) usleep(5'000);
  return holds();
}

sockaddr_in from(const char* address) { return {AF_INET, 0, {inet_addr(address)}, {}}; }

/// A UDP socket, and a port to send to that was free.
struct Sender {
  Sender() {
    sockaddr_in at = from("127.0.0.1");
    auto* const any = reinterpret_cast<sockaddr*>(&at);
    socklen_t size = sizeof at;
    const Fd reserve(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(0, bind(reserve.get(), any, size) + getsockname(reserve.get(), any, &size) +
                     connect(fd.get(), any, size));
    listen = "127.0.0.1:" + std::to_string(ntohs(at.sin_port));
  }
  void send(const Strings& datagrams) const {
    for (const std::string& d : datagrams) (void)::send(fd.get(), d.data(), d.size(), 0), usleep(9);
  }
  Fd fd{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
  std::string listen;
};

struct Program {
  Program(Strings arguments, const fs::path& out) {
    fs::remove(out);
    arguments.insert(arguments.begin(), RECEIVE);
    if ((pid = fork()) != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);  // a test that crashes leaves nothing running
    dup2(open(out.c_str(), O_WRONLY | O_CREAT, 0600), STDOUT_FILENO);
    execv(RECEIVE, to_argv(arguments).data());
    _exit(127);
  }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;
  ~Program() { end(SIGKILL); }
  /// The exit status, or the signal as a negative number.
  int end(int signal = 0) {
    if (pid > 0 && signal != 0) kill(pid, signal);
    if (pid > 0) waitpid(std::exchange(pid, 0), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }
  pid_t pid;
  int status = 0;
};

struct Receive : testing::Test {
  void TearDown() override {
    stop();
    std::cout.rdbuf(standard_output);
    umount2(into.c_str(), MNT_DETACH);
    fs::remove_all(root);
  }
  /// Anew; goes on with what an earlier one left.
  void start(const Strings& more = {}) {
    Strings arguments{"", "--json", "--no-sync", "--into", into, "--metrics", root / "metrics"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    stop();
    options = {};
    const int count = static_cast<int>(arguments.size());
    ASSERT_EQ(-1, parse_options(count, to_argv(arguments).data(), options));
    options.charset = "UTF-8";
    store = std::make_unique<Store>(options.store);
    ledger = Ledger::open(store->hidden_path() + "/ledger.sqlite", error);
    ASSERT_EQ("", store->error() + error);
    receiver = std::make_unique<Receiver>(options, *store, *ledger, events);
    receiver->resume();
  }
  void stop() { receiver.reset(), ledger.reset(), store.reset(); }
  void feed(const Strings& datagrams, const char* address = "127.0.0.1") {
    for (std::size_t at = 0; at < datagrams.size();) {
      std::vector<std::vector<unsigned char>> batch;  // so that a sanitizer knows their ends
      for (; at < datagrams.size() && batch.size() < 32; ++at) {
        const auto* bytes = reinterpret_cast<const unsigned char*>(datagrams[at].data());
        batch.emplace_back(bytes, bytes + datagrams[at].size());
        receiver->take(batch.back().data(), batch.back().size(), from(address));
      }
      receiver->end_batch();
    }
  }
  /// The values of `key` in the events `event` so far, each with a space behind.
  std::string told(const std::string& event, const char* key) const {
    std::string values;
    std::istringstream lines(console.str());
    for (std::string line; std::getline(lines, line);) {
      const auto json = nlohmann::json::parse(line);
      if (json["event"] == event) values += std::string(json[key]) + " ";
    }
    return values;
  }
  bool program_told(const std::string& text) const { return contents(out).find(text) + 1 != 0; }
  bool metric_is(const std::string& name_and_value) const {
    receiver->end(0);
    return contents(root / "metrics").find("\ntarnwick_receive_" + name_and_value + "\n") + 1 != 0;
  }

  std::ostringstream console;
  std::streambuf* const standard_output = std::cout.rdbuf(console.rdbuf());
  std::string error, made = fs::temp_directory_path() / "receive_XXXXXX";
  const fs::path root = mkdtemp(made.data());
  const fs::path into = root / "in", hidden = into / ".tarnwick", out = root / "out";
  Options options;
  Events events{true};
  std::unique_ptr<Store> store;
  std::unique_ptr<Ledger> ledger;
  std::unique_ptr<Receiver> receiver;
};

}  // namespace

TEST_F(Receive, PutsPartsTogetherInAnyOrderAndTrustsTheFirstHeader) {
  start();
  const File file{7, "\xCF.bin", random_bytes(20'000, 1), "/to/../x"}, empty{8, "empty", ""};
  const File other{7, "\xCF.bin", "other" + file.bytes, "", 1500};
  const File renamed{7, "else.bin", file.bytes, file.folder};
  feed({file.part(15), file.part(3), file.header(), other.header(), renamed.header(), file.part(1),
        datagram(7, 1, other.bytes.substr(0, 1380)), other.part(2), datagram(7, 16, "x"),
        datagram(7, 15, "short"), file.part(15) + "?", file.part(3)});
  EXPECT_EQ("", told("delivered", "path"));
  for (int pass = 0; pass < 2; ++pass) feed(file.pass(5));
  feed(empty.pass());
  EXPECT_TRUE(file.bytes == contents(into / "to/%2E%2E/x/\u041F.bin"));
  EXPECT_TRUE(metric_is("contradicting_total 5") && metric_is("repeated_parts_total 20") &&
              metric_is("differing_parts_total 1"));
  start();  // what is finished is known after a restart, too
  feed(file.pass()), feed(empty.pass()), feed({other.header()});
  EXPECT_TRUE(metric_is("open_transfers 0"));
  EXPECT_EQ("to/%2E%2E/x/\u041F.bin empty ", told("delivered", "path"));
}

TEST_F(Receive, TheLaterOfTwoFilesWithOneNameReplacesTheEarlier) {
  start();
  Strings batch;
  for (std::uint64_t id = 1; id <= 9; ++id) {
    for (const std::string& datagram : File{id, "f", std::to_string(id)}.pass()) {
      batch.push_back(datagram);
    }
  }
  feed(batch);
  EXPECT_EQ("9", contents(into / "f"));
}

TEST_F(Receive, KeepsOrDropsWhatIsGivenUpAndBeginsAnew) {
  const File file{5, "f", random_bytes(10'000, 2)};
  const std::string came = file.part(1).substr(20) + file.part(2).substr(20) +
                           std::string(5520, '\0') + file.part(7).substr(20);
  for (const bool drop : {false, true}) {
    start();
    feed({file.header(), file.part(1), file.part(2), file.part(7), file.part(8) + "?"});
    receiver->end(0);
    start({"--give-up", "1e-9", drop ? "--drop-incomplete" : "--keep-existing"});
    receiver->tick(0);
    const std::string kept = hidden / "incomplete/0000000000000005-f";
    EXPECT_TRUE((drop ? "" : came) == contents(kept));
    EXPECT_EQ(drop, contents(kept + ".missing.txt").find("2760-8279, 9660-9999\n") + 1 == 0);
    fs::remove_all(hidden / "incomplete");
  }
  EXPECT_EQ("2760-8279, 9660-9999 2760-8279, 9660-9999 ", told("incomplete", "missing_bytes"));
  feed(file.pass());
  EXPECT_TRUE(file.bytes == contents(into / "f"));
}

TEST_F(Receive, RefusesOverALimitSayingWhyAndGoesOn) {
  const File open{1, "open", "x"}, file{2, "f", std::string(1000, 'x')};
  for (const Strings& limit : {Strings{"--max-file-size", "999"},
                               {"--max-transfers", "1"},
                               {"--reserve", "9999999999999999"},
                               {"--allow", "10.1.0.0/16", "--allow", "127.0.0.1"}}) {
    start(limit);
    feed({open.header()}), feed(file.pass(), "10.2.0.1"), feed(file.pass(), "10.1.255.9");
    feed(open.pass());
    EXPECT_EQ(limit[0] == "--allow", metric_is("not_allowed_total 2"));
    stop(), fs::remove_all(into);
  }
  EXPECT_EQ("open open f open ", told("delivered", "path"));
  EXPECT_EQ(
      "larger than --max-file-size too many at a time (--max-transfers) not enough free disk space "
      "not enough free disk space ",
      told("refused", "why"));
}

TEST_F(Receive, AWriteThatFailsCostsOnlyItsFile) {
  const File big{1, "big", random_bytes(2'000'000, 1)}, small{2, "small", random_bytes(99'000, 2)};
  Strings backwards = big.pass(0);  // each part is written by itself
  std::reverse(backwards.begin(), backwards.end());
  const auto receive_both = [&](const std::function<void(bool)>& fill) {
    start();
    feed({big.header(), small.header(), small.part(9)});
    fill(true), feed(backwards), fill(false);
    feed(small.pass()), feed(big.pass());
    EXPECT_TRUE(small.bytes == contents(into / "small"));
    EXPECT_EQ("small ", told("delivered", "path"));
    EXPECT_EQ("big ", told("refused", "path"));
    console.str("");
  };
  signal(SIGXFSZ, SIG_IGN);
  receive_both([](bool full) {
    const rlimit limit{full ? 1 << 20 : RLIM_INFINITY, RLIM_INFINITY};
    EXPECT_EQ(0, setrlimit(RLIMIT_FSIZE, &limit));
  });
  if (unshare(CLONE_NEWNS) != 0 || mount("", "/", "", MS_REC | MS_PRIVATE, "") != 0 ||
      mount("tmpfs", into.c_str(), "tmpfs", 0, "size=5m") != 0)
    GTEST_SKIP() << "no disk to fill: only root can mount one";
  receive_both([this](bool full) {
    std::ofstream(into / "filler") << std::string(full ? 6'000'000 : 0, 'x');
  });
}

TEST_F(Receive, SavesAnOutcomeOnceTheLedgerHasRoomAgain) {
  start();
  rlimit limit{};
  const rlimit small{100, RLIM_INFINITY};
  (void)signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(0, prlimit(0, RLIMIT_FSIZE, &small, &limit));
  feed(File{5, "f", "small"}.pass());
  setrlimit(RLIMIT_FSIZE, &limit);
  EXPECT_EQ("f ", told("delivered", "path"));
  EXPECT_FALSE(ledger->find(5));
  receiver->end(0);
  EXPECT_EQ(Outcome::kDelivered, ledger->find(5)->outcome);
}

TEST_F(Receive, SurvivesHostileDatagrams) {
  start({"--max-transfers", "8"});
  const File file{1, "n", random_bytes(5'000, 1), "d"};
  feed({file.header()});
  std::uint64_t id = 1;
  for (const std::string& good : {file.header(), file.part(2), datagram(~0ULL, 0, le(1, 16))}) {
    for (std::size_t size = 0; size < good.size(); ++size) {
      feed({good.substr(0, size)});
      if (size >= 20) feed({datagram(++id, good[8] != 0, good.substr(20, size - 20))});
    }
    for (const std::size_t at : {0U, 8U, 16U, 20U, 28U, 36U, 40U, 44U, 52U, 84U}) {
      for (const std::uint64_t value : {0ULL, 1ULL, 1ULL << 31, ~0ULL, ~0ULL - 1, ~0ULL >> 1}) {
        for (const unsigned width : {2U, 4U, 8U}) {
          std::string bad = le(++id, 8) + good.substr(8);
          if (at < bad.size()) feed({bad.replace(at, width, le(value, width))});
        }
      }
    }
  }
  std::string up;
  while (up.size() < 60'000) up += "../";
  for (const std::string& text : {up, "/tmp/" + up, "." + up, std::string(60'000, '\xCF'),
                                  std::string(".tarnwick"), std::string("\n\x1B[2J\x7F%00")})
    feed(File{++id, text, ""}.pass()), feed(File{++id, "n", "", text}.pass());
  for (int i = 0; i < 20'000; ++i)  // 1.3 GB, were they kept
    feed({File{++id, "x", "x"}.header(), datagram(~9ULL, 1, std::string(65'000, 'x'))});
  rusage used{};
  EXPECT_EQ(0, getrusage(RUSAGE_SELF, &used));
  EXPECT_GT(700'000, used.ru_maxrss);  // KiB
  EXPECT_EQ(8, std::distance(fs::directory_iterator(hidden / "parts"), {}));
  feed(file.pass());
  EXPECT_TRUE(file.bytes == contents(into / "d/n"));
  EXPECT_EQ(1, std::distance(fs::directory_iterator(root), {}));
}

TEST_F(Receive, GoesOnAfterItsEnd) {
  const Sender sender;
  const File file{3, "f", random_bytes(500'000, 1)};  // 363 parts
  const auto run = [&](std::uint64_t first, std::uint64_t last, int signal,
                       const std::function<bool()>& until) {
    Program program({"--into", into, "--listen", sender.listen, "--json"}, out);
    ASSERT_TRUE(eventually([&] { return program_told("listening"); }));
    sender.send(file.pass(1, first, last));
    EXPECT_TRUE(eventually(until));
    EXPECT_EQ(signal == SIGKILL ? -SIGKILL : 0, program.end(signal));
  };
  const auto saved = [&](std::uint64_t parts) {
    const auto now = Ledger::open_to_read(hidden / "ledger.sqlite", error)->find(3);
    return now && now->received >= parts;
  };
  run(1, 50, SIGKILL, [&] { return !contents(hidden / "parts/0000000000000003").empty(); });
  run(51, 150, SIGKILL, [&] { return saved(100); });
  run(151, 250, SIGTERM, [] { return true; });
  EXPECT_TRUE(saved(200));
  run(251, 363, SIGKILL, [&] { return saved(313); });
  EXPECT_FALSE(fs::exists(into / "f"));
  run(1, 50, SIGINT, [&] { return program_told("\"delivered\""); });
  EXPECT_TRUE(file.bytes == contents(into / "f"));
}

TEST_F(Receive, KnowsWhatAKillOrARestartOfTheMachineInterrupted) {
  start();
  const File file{1, "f", random_bytes(2000, 1)};
  feed({file.header(), file.part(1)});
  TransferRecord complete = *ledger->find(1);
  complete.id = 2, complete.missing = "", complete.received = complete.parts;
  EXPECT_EQ("", ledger->save(complete));
  complete.id = 3, complete.why = "given up";
  EXPECT_EQ("", ledger->save(complete));
  std::ofstream(hidden / "boot_id") << "another\n";
  start();
  EXPECT_EQ("the machine was restarted given up ", told("incomplete", "why"));
  EXPECT_EQ(Outcome::kDelivered, ledger->find(2)->outcome);
  EXPECT_TRUE(fs::is_empty(hidden / "parts"));
}

TEST_F(Receive, RunsAsAProgram) {
  const Sender sender;
  const File file{1, "f", random_bytes(100'000, 1)}, lost{2, "lost", ""};
  const File journal{3, "j", file.journal_line() + lost.journal_line(), "", 1400, 1};
  Program program({"--into", into, "--listen", sender.listen, "--json", "--count", "2"}, out);
  ASSERT_TRUE(eventually([&] { return program_told("listening"); }));
  EXPECT_EQ(3, Program({"--into", root / "2", "--listen", sender.listen}, root / "o").end());
  EXPECT_EQ(4, Program({"--into", out, "--listen", "127.0.0.1:0"}, root / "o").end());
  EXPECT_EQ(2, Program({"--into", root / "2", "--allow", "10.0.0.0/33"}, root / "o").end());
  sender.send({file.header()});
  const int segment = 1400;  // many datagrams for one call, which may arrive as one
  setsockopt(sender.fd.get(), IPPROTO_UDP, UDP_SEGMENT, &segment, sizeof segment);
  std::string joined;
  for (std::uint64_t n = 1; n <= file.parts(); ++n) {
    joined += file.part(n);
    if (n % 40 == 0 || n == file.parts()) sender.send({std::exchange(joined, "")});
  }
  sender.send(journal.pass());
  EXPECT_TRUE(eventually([&] { return program_told("\"ended\""); }));
  EXPECT_EQ(0, program.end(SIGTERM));
  EXPECT_TRUE(file.bytes == contents(into / "f"));
  EXPECT_EQ(1, Program({"report", "--into", into, "--missing"}, out).end());
  EXPECT_EQ(0U, contents(out).find("lost whole: lost\n2 files in the journals: 1 delivered, "));
  EXPECT_EQ(0, Program({"report", "--into", into}, out).end());
}

// The chances are those of docs/loss.md.
TEST_F(Receive, DeliversOverALossyLineAtTheRateOfTheArithmetic) {
  constexpr unsigned kFiles = 200;
  std::istringstream courses(  // loss burst doubled late headers passes parts udata pause chance
      "0.01    0 0    0  1 2 200  1400    0 0.9801\n"
      "0.01    0 0.1  9  1 3 100  1400    0 0.9999\n"
      "0.01    0 0    0  2 5 100  1400    0 1.0000\n"
      "0.05    0 0    0  1 2 100  1400    0 0.7766\n"
      "0.05    0 0.1  9  1 3 200  1400    0 0.9752\n"
      "0.05    0 0    0  2 5 100  1400    0 1.0000\n"
      "0.20    0 0    0  1 2  10  1400    0 0.6382\n"
      "0.20    0 0.1  9  1 3  50  1400    0 0.6639\n"
      "0.20    0 0    0  2 5 100  1400    0 0.9685\n"
      "0.20    0 0    0  1 1   1  1400    0 0.6400\n"
      "0.005   0 0    0  1 2  20  1400    0 0.9995\n"
      "0.005   0 0    0  1 2  20 61440    0 0.4799\n"
      "0     100 0    0  1 2  20  1400    0 0.8043\n"
      "0     100 0    0  1 2  20  1400  100 0.9046\n"
      "0     100 0.1  9  1 2  20  1400 2000 0.9444\n");
  std::size_t seed = 0;
  for (std::string course; std::getline(courses, course);) {
    Line line;
    double burst = 0, chance = 0;
    std::size_t headers = 0, passes = 0, parts = 0, udata = 0, pause = 0;
    std::istringstream(course) >> line.loss >> burst >> line.doubled >> line.late >> headers >>
        passes >> parts >> udata >> pause >> chance;
    if (burst > 0) line.to_good = 1 / burst, line.to_bad = line.to_good / 4;  // a fifth of the time
    start({"--give-up", "1e-9"});
    Relay relay(line, static_cast<unsigned>(++seed));
    const auto file_no = [&](std::uint64_t id) {
      return File{id, std::to_string(id), random_bytes(parts * (udata - 20), id), "", udata};
    };
    File journal{~1ULL, "j", "", "", 1400, 1};
    const std::uint64_t first = seed * 1000;
    for (std::uint64_t id = first; id < first + kFiles; ++id) {
      if (burst > 0) (void)relay.pass(2000);
      const File file = file_no(id);
      for (std::size_t pass = 0; pass < passes; ++pass, (void)relay.pass(pause))
        feed(relay.carry(file.pass(headers)));
      receiver->tick(0);
      journal.bytes += file.journal_line();
    }
    feed(journal.pass());
    std::ostringstream report;
    print_report(*ledger, {true, false, true}, report);
    unsigned arrived = 0;
    for (std::uint64_t id = first; id < first + kFiles; ++id) {
      const File file = file_no(id);
      const bool here = fs::exists(into / file.name);
      EXPECT_EQ(here, report.str().find("{\"path\":\"" + file.name + "\"") == std::string::npos);
      EXPECT_TRUE(!here || file.bytes == contents(into / file.name)) << id;
      arrived += here ? 1 : 0;
    }
    std::printf("%s: %u of %u arrived\n", course.c_str(), arrived, kFiles);
    EXPECT_NEAR(kFiles * chance, arrived, 4 * std::sqrt(kFiles * chance * (1 - chance)) + 0.5);
    stop(), fs::remove_all(into);
  }
}
