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
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "receiver/receiver.h"
#include "relay.h"

namespace fs = std::filesystem;
using Json = nlohmann::json;
using Strings = std::vector<std::string>;

namespace {

std::string le(std::uint64_t value, int bytes) {
  std::string text;
  for (; bytes > 0; --bytes, value >>= 8) text += static_cast<char>(value & 0xFF);
  return text;
}

std::string datagram(std::uint64_t id, std::uint64_t part_no, const std::string& body) {
  return le(id, 8) + le(part_no, 8) + le(body.size(), 4) + body;
}

std::string random_bytes(std::size_t size, unsigned seed) {
  std::mt19937 random(seed);
  std::string bytes(size, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random() & 0xFF);
  return bytes;
}

struct File {
  std::uint64_t id;
  std::string name, bytes, folder = "";
  std::uint64_t udata = 1400, kind = 0;

  std::string header() const {
    const std::string folder_text = folder.empty() ? "" : folder + '\0';
    return datagram(id, 0,
                    le(bytes.size(), 8) + le(~0ULL, 8) + le(udata, 4) + le(id + 1, 4) + le(9, 8) +
                        le(kind, 2) + std::string(30, '\0') + name + '\0' + folder_text + '\0');
  }
  std::uint64_t parts() const { return (bytes.size() + udata - 21) / (udata - 20); }
  std::string part(std::uint64_t n) const {
    return datagram(id, n, bytes.substr((n - 1) * (udata - 20), udata - 20));
  }
  /// Headers, then the parts from `first` on.
  Strings pass(std::size_t headers = 1, std::uint64_t first = 1) const {
    Strings sent(headers, header());
    for (std::uint64_t n = first; n <= parts(); ++n) sent.push_back(part(n));
    return sent;
  }
  std::string journal_line() const {
    char text[64];
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
  return {std::istreambuf_iterator<char>(std::ifstream(path, std::ios::binary).rdbuf()), {}};
}

/// Waits up to 60 s for it to hold; false if it never did.
template <typename Condition>
bool eventually(const Condition& holds) {
  for (int i = 0; i < 12'000 && !holds(); ++i) usleep(5'000);
  return holds();
}

sockaddr_in address(const char* text, std::uint16_t port) {
  sockaddr_in at{};
  at.sin_family = AF_INET;
  at.sin_port = htons(port);
  inet_pton(AF_INET, text, &at.sin_addr);
  return at;
}

/// A UDP socket that sends to a port which nothing else uses.
struct Sender {
  Sender() {
    const Fd reserve(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in at = address("127.0.0.1", 0);
    socklen_t len = sizeof at;
    EXPECT_EQ(0, bind(reserve.get(), reinterpret_cast<sockaddr*>(&at), len));
    EXPECT_EQ(0, getsockname(reserve.get(), reinterpret_cast<sockaddr*>(&at), &len));
    EXPECT_EQ(0, connect(fd.get(), reinterpret_cast<sockaddr*>(&at), len));
    listen = "127.0.0.1:" + std::to_string(ntohs(at.sin_port));
  }
  void send(const Strings& datagrams) const {
    for (const std::string& d : datagrams)
      (void)::send(fd.get(), d.data(), d.size(), 0), usleep(20);
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
  ~Receive() override {
    stop();
    std::cout.rdbuf(kept);
    umount2(into.c_str(), MNT_DETACH);
    fs::remove_all(root);
  }
  /// Anew, with further arguments: what an earlier one left behind is gone on with.
  void start(const Strings& more = {}) {
    Strings arguments{"tarnwick-receive", "--json",   "--no-sync", "--into", into,
                      "--metrics",        root / "m", "--charset", "UTF-8"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    stop();
    options = {};
    ASSERT_EQ(
        -1, parse_options(static_cast<int>(arguments.size()), to_argv(arguments).data(), options));
    store = std::make_unique<Store>(options.store);
    ledger = Ledger::open(store->hidden_path() + "/ledger.sqlite", error);
    ASSERT_EQ("", store->error() + error);
    receiver = std::make_unique<Receiver>(options, *store, *ledger, events);
    receiver->resume();
  }
  void stop() { receiver.reset(), ledger.reset(), store.reset(); }
  void feed(const Strings& datagrams, const char* from = "127.0.0.1") {
    for (std::size_t at = 0; at < datagrams.size();) {
      std::vector<std::vector<unsigned char>> batch;  // its own bytes: a sanitizer knows their ends
      for (; at < datagrams.size() && batch.size() < 32; ++at)
        batch.emplace_back(datagrams[at].begin(), datagrams[at].end());
      for (const auto& bytes : batch) receiver->take(bytes.data(), bytes.size(), address(from, 9));
      receiver->end_batch();
    }
  }
  /// The events of this name so far, oldest first; `key` of each.
  Strings told(const std::string& name, const char* key = "path") const {
    Strings values;
    std::istringstream lines(console.str());
    for (std::string line; std::getline(lines, line);) {
      const Json json = Json::parse(line);
      if (json["event"] == name) values.push_back(json[key]);
    }
    return values;
  }
  std::string metric(const std::string& name) const {
    receiver->end(0);
    const std::string text = "\n" + contents(root / "m"),
                      wanted = "\ntarnwick_receive_" + name + " ";
    const std::size_t at = text.find(wanted) + wanted.size();
    return text.substr(at, text.find('\n', at) - at);
  }
  std::size_t files() const {  // those that a reader of the folder sees
    std::size_t count = 0;
    for (auto it = fs::recursive_directory_iterator(into); it != end(it); ++it) {
      if (it->path().filename() == ".tarnwick")
        it.disable_recursion_pending();
      else
        count += it->is_regular_file() ? 1 : 0;
    }
    return count;
  }
  /// The program has written it.
  bool is_told(const std::string& text) const { return contents(out).find(text) + 1 != 0; }

  std::ostringstream console;
  std::streambuf* const kept = std::cout.rdbuf(console.rdbuf());
  std::string error, name = fs::temp_directory_path() / "receive_XXXXXX";
  const fs::path root = mkdtemp(name.data());
  const fs::path into = root / "in", out = root / "out";
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
  File other = file;
  other.bytes[0] ^= 1, other.bytes += "longer", other.udata = 1500;
  const std::string differing = datagram(7, 1, other.bytes.substr(0, 1380));
  feed({file.part(15), file.part(3), file.header(), other.header(), file.part(1), differing,
        other.part(2), datagram(7, 16, "x"), datagram(7, 15, "short"), file.part(3)});
  EXPECT_EQ(0U, files());
  for (int pass = 0; pass < 2; ++pass) feed(file.pass(5));
  feed(empty.pass());
  EXPECT_EQ(file.bytes, contents(into / "to/%2E%2E/x/\u041F.bin"));
  EXPECT_EQ((Strings{"to/%2E%2E/x/\u041F.bin", "empty"}), told("delivered"));
  EXPECT_EQ("4 20 1", metric("contradicting_total") + " " + metric("repeated_parts_total") + " " +
                          metric("differing_parts_total"));
  start();  // what is finished is known after a restart, too
  feed(file.pass()), feed(empty.pass()), feed({other.header()});
  EXPECT_EQ("0 2", metric("open_transfers") + " " + std::to_string(files()));
}

TEST_F(Receive, KeepsOrDropsWhatIsGivenUpAndBeginsAnew) {
  const File file{5, "f", random_bytes(10'000, 2)};
  const std::string came = file.bytes.substr(0, 2760) + std::string(5520, '\0');
  for (const bool drop : {false, true}) {
    start({"--give-up", "1e-9", drop ? "--drop-incomplete" : "--keep-existing"});
    feed({file.header(), file.part(1), file.part(2), file.part(7), file.part(8) + "?"});
    receiver->tick(0);
    const std::string kept = told("incomplete", "kept_as").back();
    EXPECT_EQ("2760-8279, 9660-9999", told("incomplete", "missing_bytes").back());
    EXPECT_EQ(drop ? "" : came + file.bytes.substr(8280, 1380), contents(kept));
    const std::string note = contents(kept + ".missing.txt");
    EXPECT_EQ(drop, note.find(": 2760-8279, 9660-9999\n") == std::string::npos) << note;
  }
  EXPECT_EQ(0U, files());
  feed(file.pass());
  EXPECT_EQ(file.bytes, contents(into / "f"));
}

TEST_F(Receive, RefusesOverALimitSayingWhyAndGoesOn) {
  const File open{1, "open", "x"}, file{2, "f", std::string(1000, 'x')};
  for (const Strings& limit : {Strings{"--max-file-size", "999"},
                               {"--max-transfers", "1"},
                               {"--reserve", "9999999999999999"},
                               {"--allow", "10.1.0.0/16", "--allow", "127.0.0.1"}}) {
    start(limit);
    feed({open.header()});
    feed(file.pass(), "10.2.0.1");
    feed(file.pass(), "10.1.255.9");
    feed(open.pass());
    EXPECT_EQ(limit[0] == "--allow" ? "2" : "0", metric("not_allowed_total"));
    stop(), fs::remove_all(into);
  }
  EXPECT_EQ((Strings{"open", "open", "f", "open"}), told("delivered"));
  EXPECT_EQ((Strings{"larger than --max-file-size", "too many at a time (--max-transfers)",
                     "not enough free disk space", "not enough free disk space"}),
            told("refused", "why"));
}

TEST_F(Receive, AWriteThatFailsCostsOnlyItsFile) {
  const File big{1, "big", random_bytes(3'000'000, 1)}, small{2, "small", random_bytes(99'000, 2)};
  Strings backwards = big.pass(0);  // each part is written by itself
  std::reverse(backwards.begin(), backwards.end());
  const auto receive_both = [&](const std::function<void(bool)>& full) {
    console.str("");
    start();
    feed({big.header(), small.header(), small.part(9)});
    full(true);
    feed(backwards);
    full(false);
    feed(small.pass()), feed(big.pass());
    EXPECT_EQ(Strings{"small"}, told("delivered"));
    EXPECT_EQ(Strings{"big"}, told("refused"));
    EXPECT_EQ(small.bytes, contents(into / "small"));
    std::error_code busy_when_mounted;
    stop(), fs::remove_all(into, busy_when_mounted);
  };
  signal(SIGXFSZ, SIG_IGN);
  receive_both([](bool full) {
    const rlimit limit{full ? 1 << 20 : RLIM_INFINITY, RLIM_INFINITY};
    EXPECT_EQ(0, setrlimit(RLIMIT_FSIZE, &limit));
  });
  fs::create_directory(into);
  if ((unshare(CLONE_NEWNS) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) ||
      mount("", "/", "", MS_REC | MS_PRIVATE, "") != 0 ||
      mount("tmpfs", into.c_str(), "tmpfs", 0, "size=5m") != 0)
    GTEST_SKIP() << "no disk to fill: a file system can't be mounted here";
  receive_both([this](bool full) {
    std::ofstream(into / "filler") << std::string(full ? 6'000'000 : 0, 'x');
  });
}

TEST_F(Receive, SurvivesHostileDatagrams) {
  start({"--max-transfers", "8"});
  const File file{1, "n", random_bytes(5'000, 1), "d"};
  feed({file.header()});
  std::uint64_t id = 2;
  for (const std::string& good : {file.header(), file.part(2), datagram(~0ULL, 0, le(1, 16))}) {
    for (std::size_t size = 0; size < good.size(); ++size) {
      feed({good.substr(0, size)});
      if (size >= 20) feed({datagram(++id, good[8], good.substr(20, size - 20))});
    }
  }
  for (const auto& [at, width] : {std::pair<std::size_t, int>{0, 8},
                                  {8, 8},
                                  {16, 4},
                                  {20, 8},
                                  {28, 8},
                                  {36, 4},
                                  {40, 4},
                                  {44, 8},
                                  {52, 2}}) {
    for (const std::uint64_t value :
         {0ULL, 1ULL, 19ULL, ~0ULL, ~0ULL - 1, ~0ULL >> 1, 1ULL << 31}) {
      for (std::string bytes : {file.header(), file.part(4)}) {
        if (at > 0) bytes.replace(0, 8, le(++id, 8));
        feed({bytes.replace(at, static_cast<std::size_t>(width), le(value, width))});
      }
    }
  }
  std::string up;
  for (int i = 0; i < 20'000; ++i) up += "../";
  for (const std::string& name :
       {std::string("../../x"), std::string("/tmp/x"), std::string(".."), std::string(60'000, 'n'),
        up, std::string(60'000, '\xCF'), std::string(".tarnwick"), std::string("\n\x1B[2J\x7F%00")})
    for (const File& f : {File{++id, name, ""}, File{++id, "n", "", name}}) feed(f.pass());
  const std::size_t before = files();
  for (int i = 0; i < 20'000; ++i)  // 1.3 GB in parts, had they been kept
    feed({File{++id, std::to_string(i), std::string(1'000, 'x')}.header(),
          datagram(++id, 1, std::string(65'000, 'x'))});
  rusage used{};
  getrusage(RUSAGE_SELF, &used);
  EXPECT_GT(700'000, used.ru_maxrss);  // KiB
  EXPECT_EQ(before, files());
  feed(file.pass());
  EXPECT_EQ(file.bytes, contents(into / "d/n"));
  std::size_t outside = 0;
  for (const auto& entry : fs::directory_iterator(root)) outside += entry.path() == into ? 0U : 1U;
  EXPECT_EQ(0U, outside);
}

TEST_F(Receive, GoesOnAfterItsEndUntilTheGiveUpTime) {
  const Sender sender;
  const File file{3, "f", random_bytes(500'000, 1)};  // 363 parts
  const auto run = [&](const char* give_up, std::uint64_t from, std::uint64_t to, const auto& until,
                       int signal) {
    Program program({"--into", into, "--listen", sender.listen, "--json", "--give-up", give_up},
                    out);
    ASSERT_TRUE(eventually([&] { return is_told("listening"); }));
    if (from != 0) sender.send({file.header()});
    for (std::uint64_t n = from; n < to; ++n) sender.send({file.part(n)});
    EXPECT_TRUE(eventually(until));
    EXPECT_EQ(signal == SIGTERM ? 0 : -signal, program.end(signal));
  };
  const auto saved = [&] {
    const auto other = Ledger::open_to_read(into / ".tarnwick/ledger.sqlite", error);
    const auto record = other ? other->find(3) : std::nullopt;
    return record ? record->received : 0;
  };
  const fs::path growing = into / ".tarnwick/parts/0000000000000003";
  run(
      "60", 1, 51, [&] { return fs::exists(growing) && fs::file_size(growing) > 0; }, SIGKILL);
  run(
      "60", 51, 151, [&] { return saved() >= 100; }, SIGKILL);
  run(
      "60", 151, 251, [] { return true; }, SIGTERM);
  EXPECT_LE(200U, saved());
  run(
      "60", 251, 364, [&] { return saved() >= 313; }, SIGKILL);
  EXPECT_EQ(0U, files());
  run(
      "60", 1, 51, [&] { return is_told("\"delivered\""); }, SIGINT);
  EXPECT_EQ(file.bytes, contents(into / "f"));
}

TEST_F(Receive, RunsAsAProgram) {
  const Sender sender;
  const File file{1, "f", random_bytes(100'000, 1)}, lost{2, "lost", ""};
  const File journal{3, "j", file.journal_line() + lost.journal_line(), "", 1400, 1};
  Program program({"--into", into, "--listen", sender.listen, "--json", "--count", "2"}, out);
  ASSERT_TRUE(eventually([&] { return is_told("listening"); }));
  EXPECT_EQ(3, Program({"--into", root / "other", "--listen", sender.listen}, root / "o").end());
  EXPECT_EQ(4, Program({"--into", out, "--listen", "127.0.0.1:0"}, root / "o").end());
  EXPECT_EQ(2, Program({"--into", root / "other", "--allow", "10.0.0.0/33"}, root / "o").end());
  sender.send({file.header()});
  const int segment = 1400;  // many datagrams for one call, which may arrive as one
  setsockopt(sender.fd.get(), IPPROTO_UDP, UDP_SEGMENT, &segment, sizeof segment);
  std::string joined;
  for (std::uint64_t n = 1; n <= file.parts(); ++n) {
    joined += file.part(n);
    if (n % 40 == 0 || n == file.parts()) sender.send({std::exchange(joined, "")});
  }
  sender.send(journal.pass());
  EXPECT_EQ(0, program.end());
  EXPECT_TRUE(is_told("\"ended\""));
  EXPECT_EQ(file.bytes, contents(into / "f"));
  EXPECT_EQ(1, Program({"report", "--into", into, "--missing"}, out).end());
  EXPECT_EQ(0U, contents(out).find("lost whole: lost\n2 files in the journals: 1 delivered, "));
  EXPECT_EQ(0, Program({"report", "--into", into}, out).end());
}

// Delivery over a line that loses. What is printed stands in docs/loss.md.

namespace {

struct Course {
  Line line;
  unsigned headers, passes;
  std::uint64_t parts, udata;
  unsigned idle;  ///< frames between passes
};

/// The chance that a file arrives over independent frames.
double chance_at_random(const Course& c) {
  const double lost = 1 - std::pow(1 - c.line.loss, static_cast<double>(frames_of(c.udata)));
  return (1 - std::pow(c.line.loss, c.headers * c.passes)) *
         std::pow(1 - std::pow(lost, c.passes), static_cast<double>(c.parts));
}

/// The same over bursts, one header and two passes so far apart that they know
/// nothing of each other: in no place may the line be bad in both.
double chance_in_bursts(const Course& c) {
  const double bad = c.line.to_bad / (c.line.to_bad + c.line.to_good);
  const double turn[2][2] = {{1 - c.line.to_bad, c.line.to_bad},
                             {c.line.to_good, 1 - c.line.to_good}};
  std::array<double, 3> now{(1 - bad) * (1 - bad), bad * (1 - bad), bad * (1 - bad)};
  for (std::uint64_t i = 0; i < c.parts; ++i) {  // states 0: good, good; 1: bad, good; 2: good, bad
    std::array<double, 3> next{};
    for (std::size_t from = 0; from < 3; ++from) {
      for (std::size_t to = 0; to < 3; ++to)
        next[to] += now[from] * turn[from & 1][to & 1] * turn[from >> 1][to >> 1];
    }
    now = next;
  }
  return now[0] + now[1] + now[2];
}

}  // namespace

TEST_F(Receive, DeliversWholeOrReportsAtTheRatesOfTheArithmetic) {
  constexpr unsigned kFiles = 200;
  const Line bursts{0, 0.05 / 0.95 / 20, 1.0 / 20, 0,
                    0};  // a twentieth of the time, 20 frames long
  unsigned seed = 0;
  std::puts("  loss bursts reorder double headers passes  parts  udata   idle  arrived expected");
  for (const Course& c : {Course{{0.01, 0, 1, 0, 0}, 1, 2, 200, 1400, 0},
                          {{0.01, 0, 1, 0.1, 9}, 1, 3, 200, 1400, 0},
                          {{0.01, 0, 1, 0, 0}, 2, 5, 200, 1400, 0},
                          {{0.05, 0, 1, 0, 0}, 1, 2, 100, 1400, 0},
                          {{0.05, 0, 1, 0.1, 9}, 1, 3, 200, 1400, 0},
                          {{0.05, 0, 1, 0, 0}, 1, 5, 200, 1400, 0},
                          {{0.20, 0, 1, 0, 0}, 1, 2, 20, 1400, 0},
                          {{0.20, 0, 1, 0.1, 9}, 1, 3, 50, 1400, 0},
                          {{0.20, 0, 1, 0, 0}, 1, 5, 100, 1400, 0},
                          {{0.20, 0, 1, 0, 0}, 1, 2, 1, 1400, 0},
                          {{0.005, 0, 1, 0, 0}, 1, 2, 10, 1400, 0},
                          {{0.005, 0, 1, 0, 0}, 1, 2, 10, 61440, 0},
                          {bursts, 1, 2, 10, 1400, 0},
                          {bursts, 1, 2, 10, 1400, 20},
                          {bursts, 1, 2, 10, 1400, 2000}}) {
    start({"--give-up", "1e-9"});
    Relay relay(c.line, ++seed);
    File file{seed * 1000, "", ""}, journal{seed * 1000 + 999, "journal", "", "", 1400, 1};
    const auto bytes_of = [&](std::uint64_t id) {
      return random_bytes(c.parts * (c.udata - 20), static_cast<unsigned>(id));
    };
    for (unsigned i = 0; i < kFiles; ++i) {
      file.name = std::to_string(++file.id);
      file.bytes = bytes_of(file.id);
      relay.idle(c.line.to_bad > 0 ? 2000 : 0);
      for (unsigned pass = 0; pass < c.passes; ++pass) {
        feed(relay.carry(file.pass(c.headers)));
        if (pass + 1 < c.passes) relay.idle(c.idle);
      }
      receiver->tick(0);
      journal.bytes += file.journal_line();
    }
    feed(journal.pass());
    std::ostringstream report;
    print_report(*ledger, {true, false, true}, report);
    unsigned arrived = 0;
    for (std::uint64_t id = seed * 1000 + 1; id <= file.id; ++id) {
      const bool here = fs::exists(into / std::to_string(id));
      const std::string entry = "{\"path\":\"" + std::to_string(id) + "\"";
      EXPECT_EQ(here, report.str().find(entry) == std::string::npos) << id;
      if (here) EXPECT_TRUE(bytes_of(id) == contents(into / std::to_string(id))) << id;
      arrived += here ? 1 : 0;
    }
    const double chance = c.line.to_bad > 0 ? chance_in_bursts(c) : chance_at_random(c);
    const double sigma = std::sqrt(kFiles * chance * (1 - chance));
    std::printf("%6g %6g %7u %6g %7u %6u %6lu %6lu %6u  %7u %8.1f\n", c.line.loss,
                c.line.to_bad > 0 ? 1 / c.line.to_good : 0, c.line.late, c.line.doubled, c.headers,
                c.passes, c.parts, c.udata, c.idle, arrived, kFiles * chance);
    if (c.line.to_bad > 0 && c.idle < 2000)
      EXPECT_LT(arrived, kFiles * chance - 4 * sigma);
    else
      EXPECT_NEAR(kFiles * chance, arrived, 4 * sigma + 1);
    stop(), fs::remove_all(into);
  }
}
