// The daemon, its stop and the trash journal, seen from outside.
#include <linux/capability.h>

#include <list>
#include <regex>

#include "tests/program/support.h"

namespace {

const std::string kFrozen = "Already running! trying to freez...\nOK!  frozzen!\n";
const std::string kThawed = "Trying to unfreez...\nOK!  unfrozzen!\n";

/// What a lock file holds; `asked` and `state` are its command and status words.
std::string record(pid_t owner, char asked = 0, char state = 0, char stop = 0) {
  return std::string(reinterpret_cast<const char*>(&owner), sizeof owner) +
         std::string{stop, 0, asked, 0, state, 0, 0, 0};
}

struct Daemon : testing::Test {
  TempDir home;
  Collector net;
  std::list<Program> started;
  pid_t pid;         ///< of the daemon started last
  std::string proc;  ///< and its folder
  const std::function<bool()> all_sent = [&] { return fs::is_empty(home.path("in")); };

  void SetUp() override {
    prctl(PR_SET_CHILD_SUBREAPER, 1);  // a daemon becomes our child, and its end ours to see
    home.write("tarnwick_cfg", "p:" + net.port + "\nf:in\nu:1\nd:1\nc:1\ny:bin\n");
  }

  std::string lock() const { return read_file(home.lock()); }

  /// What a run with these options tells, then what the lock file holds.
  std::string told(std::vector<std::string> all) const {
    return Program(home, std::move(all)).told().append(lock());
  }

  /// Starts a daemon and waits until it has its socket. Throws if that is not there.
  void start(std::vector<std::string> options = {}) {
    options.emplace_back("-m:2");
    EXPECT_EQ(0, started.emplace_back(home, options).wait());
    pid = static_cast<pid_t>(Packet{0, lock()}.field(0, 4));
    proc = "/proc/" + std::to_string(pid) + "/";
    if (!eventually([&] { return fs::is_socket(proc + "fd/1"); })) throw std::exception();
    EXPECT_EQ(fs::path(home.program()).parent_path(), fs::read_symlink(proc + "cwd"));
  }

  /// Sends the journal; who reads what is told goes away after the first byte.
  void send_journal_to_a_reader_who_leaves() const {
    const std::string ordinary = home.ordinary ? " --send-buffer=64K --run-dir=." : "";
    const std::string run = "cd " + home.path("") + "; exec -a " + home.program();
    FILE* reader = popen(("bash -c '" + run + " " TARNWICK + ordinary + " -m:4'").c_str(), "re");
    EXPECT_EQ('A', std::fgetc(reader));
    pclose(reader);
  }

  /// How the daemon ended: 0, its signal, or 256 * its status.
  int end_of_daemon() const {
    int status = -1;
    EXPECT_TRUE(eventually([&] { return waitpid(pid, &status, WNOHANG) != 0; }));
    return status;
  }

  /// Stops the daemon and tells how it ended.
  int stop() const {
    Program m3(home, {"-m:3"});
    const int status = end_of_daemon();  // at once: for the program a zombie still runs
    EXPECT_EQ("0 Already running! trying to stop...\nOK!  stoped!\n", m3.told().append(lock()));
    return status;
  }
};

TEST_F(Daemon, DetachesAndShowsNothingFromThenOn) {
  home.write("in/a", "abc");
  home.write("list", "127.0.0.1 in far\n127.0.0.1 none\n");
  const Fd inherited(dup(STDIN_FILENO));  // no O_CLOEXEC
  start({"-v:2", "-l:1", "-k:1", "-j:list", "-c:99"});
  const std::string told = started.back().told(), log = home.path("tarnwick_logs.txt");
  EXPECT_EQ("\nstart daemon\n", told.substr(told.size() - 14));
  // it leads its group and session and has no terminal
  const std::regex detached(R"((\d+) \(.*\) . \d+ \1 \1 0 [\s\S]*\nUmask:\t0000\n[\s\S]*)");
  EXPECT_TRUE(std::regex_match(read_file(proc + "stat") + read_file(proc + "status"), detached));
  EXPECT_EQ(fs::canonical(home.lock()), fs::read_symlink(proc + "fd/0"));
  EXPECT_TRUE(eventually([&] { return read_file(log).find("!!!111.") != std::string::npos; }));
  const auto descriptors = [&] { return std::distance(fs::directory_iterator(proc + "fd"), {}); };
  EXPECT_TRUE(eventually([&] { return descriptors() == 2; }));
  EXPECT_EQ(record(pid), lock());
  EXPECT_EQ(0, stop());
  EXPECT_EQ(told, started.back().told());
  EXPECT_EQ(" " + home.path("in/a\n"), read_file(home.path("bin/trash_log")).substr(30));
  const std::regex changing(R"(\d\d/\d\d/\d{4} [\d:]{8}|\S*tarnwick_\w{6})");
  const std::string logged = std::regex_replace(read_file(log), changing, "#");
  EXPECT_EQ(
      "Start Tarnwick Server #\n# > Sent file #/in/a (1)\n\nFolder #/in is empty now.\n1 files "
      "was transfered.\n\nfolder #/none was not found !!!111.\n\n\nsent 0 files \nStop Tarnwick "
      "Server  #\n\n",
      logged);
  EXPECT_EQ("abc", rebuild(net.packets()).at("far/a").at(0));  // throws if there is anything else
}

TEST_F(Daemon, GivesUpNetworkAdministrationAndNothingElse) {
  const auto rights = [](const std::string& of) {
    const std::string status = read_file("/proc/" + of + "/status");
    const std::size_t begin = status.find("CapInh:");
    return status.substr(begin, status.find("\nSeccomp:") - begin);
  };
  std::string wanted = rights("self");
  const bool may_give_up = prctl(PR_CAPBSET_READ, CAP_SETPCAP) == 1 && geteuid() == 0;
  for (std::size_t at = 0; (at = wanted.find(":\t0000", at)) != std::string::npos; ++at) {
    char& digit = wanted[at + 14];  // of bits 12 to 15
    if (may_give_up && std::stoi(std::string(1, digit), nullptr, 16) % 2 == 1) --digit;
  }
  wanted.back() = '1';
  start();
  EXPECT_TRUE(eventually([&] { return rights(std::to_string(pid)) == wanted; })) << wanted;
  EXPECT_EQ(0, stop());
  const Program cycle(home, {"-m:1"});
  EXPECT_TRUE(eventually([&] { return rights(std::to_string(cycle.pid)) == wanted; })) << wanted;
}

TEST_F(Daemon, KeepsTheFileWhenItFailsOrIsKilledAndIsSucceeded) {
  const std::string file(30'000, 'x');
  start({"-i:nowhere"});
  home.write("in/a", file);
  EXPECT_EQ(256, end_of_daemon());
  EXPECT_EQ("0 " + record(pid), started.back().told() + lock());
  start({"-s:0.01"});
  while (net.packets().empty()) continue;
  kill(pid, SIGKILL);
  EXPECT_EQ(SIGKILL, end_of_daemon());
  EXPECT_EQ(file, read_file(home.path("in/a")));
  net.packets();
  start();
  EXPECT_TRUE(eventually(all_sent));
  EXPECT_EQ(file, rebuild(net.packets())["/a"].at(0));
}

TEST_F(Daemon, SendsEachFileOnceAndTheJournalInBetween) {
  std::map<std::string, std::vector<std::string>> sent;
  for (const std::string name : {"/1", "/22"}) {
    home.ordinary = home.ordinary || name == "/22";  // the copies find each other both ways
    start({"-k:1"});
    home.write("in" + name, sent[name].emplace_back(name.size() * 2000, 'x'));
    EXPECT_TRUE(eventually(all_sent));
    // the journal itself does not go to the trash
    EXPECT_EQ("0 " + kFrozen + kThawed + record(pid), told({"-m:4", "-k:1"}));
    EXPECT_EQ(0, stop());
    EXPECT_EQ("0 ", told({"-m:4", "-k:1"}));
    sent["/trash_log"].resize(sent["/trash_log"].size() + 2, read_file(home.path("bin/trash_log")));
  }
  const auto packets = net.packets();
  EXPECT_TRUE(sent == rebuild(packets));
  for (const Packet& packet : packets) {  // the name of the journal alone begins with "t"
    EXPECT_EQ(packet.is_header() && packet.bytes[84] == 't', packet.field(52, 2) == 1);
  }
}

TEST_F(Daemon, WaitsWhileFrozenAndIsThawedHoweverTheJournalFares) {
  start();
  const auto descriptors_when_frozen = [&] {
    Program killed(home, {"-m:4", "-u:9999"});  // so nobody thaws the daemon
    EXPECT_TRUE(eventually([&] { return killed.out() + lock() == kFrozen + record(pid, 2, 2); }));
    return std::distance(fs::directory_iterator(proc + "fd"), {});
  };
  EXPECT_EQ("0 " + kFrozen + kThawed + record(pid), told({"-m:4"}));  // there is no journal yet
  home.write("bin/trash_log", "x");
  const auto at_start = descriptors_when_frozen();
  for (int i = 0; i < 40; ++i) home.write("in/" + std::to_string(i), "x");
  sleep(2);  // longer than a cycle
  EXPECT_TRUE(home.has("in/0"));
  EXPECT_TRUE(home.has("in/39"));
  EXPECT_EQ("1 " + kFrozen + "inet_aton() failed\n" + record(pid), told({"-m:4", "-i:nowhere"}));
  EXPECT_TRUE(eventually(all_sent));
  const std::string refusal = "The scan list is empty: the trash journal has no receiver.\n";
  EXPECT_EQ("255 " + kFrozen + refusal + kThawed + record(pid), told({"-m:4", "-j:none"}));
  const std::string no_socket = "Error MTU\n1400..65507Can't open socket!\n";
  EXPECT_EQ("255 " + kFrozen + no_socket + record(pid), told({"-m:4", "-t:1"}));
  EXPECT_EQ(at_start, descriptors_when_frozen());
  send_journal_to_a_reader_who_leaves();
  EXPECT_EQ(record(pid), lock()) << "thawed all the same";
  descriptors_when_frozen();
  EXPECT_EQ(0, stop());
}

}  // namespace
