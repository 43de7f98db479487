// The daemon, its stop and the trash journal, seen from outside.
#include <linux/capability.h>

#include <chrono>
#include <list>
#include <regex>

#include "tests/program/support.h"

using namespace std::string_literals;

namespace {

const std::string kFrozen = "Already running! trying to freez...\nOK!  frozzen!\n";
const std::string kThawing = "Trying to unfreez...\n", kThawed = kThawing + "OK!  unfrozzen!\n";

/// What a lock file holds; `asked` and `state` are its command and status words.
std::string record(pid_t owner, char asked = 0, char state = 0, char stop = 0) {
  return std::string(reinterpret_cast<const char*>(&owner), sizeof owner) +
         std::string{stop, 0, asked, 0, state, 0, 0, 0};
}

/// The processes whose working folder it is.
std::vector<pid_t> processes_in(const fs::path& folder) {
  std::vector<pid_t> found;
  for (const auto& process : fs::directory_iterator("/proc")) {
    std::error_code ended;
    if (fs::read_symlink(process.path() / "cwd", ended) != folder) continue;
    found.push_back(std::stoi(process.path().filename()));
  }
  return found;
}

/// A place for a daemon. Whatever runs there at the end is killed, by a process
/// that does so even when this one is.
struct Daemon : testing::Test {
  TempDir home;
  Collector net;
  const fs::path folder = fs::path(home.program()).parent_path();
  std::list<Program> started;
  Fd alive;

  void SetUp() override {
    if (const auto missing = missing_right(); !missing.empty()) GTEST_SKIP() << missing;
    prctl(PR_SET_CHILD_SUBREAPER, 1);  // a daemon becomes our child, and its end ours to see
    home.write("tarnwick_cfg", "p:" + net.port + "\nf:in\nu:1\nd:1\nc:1\ny:trash\n");
    fs::create_directory(home.path("in"));
    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
    const Fd end(ends[0]);
    alive = Fd(ends[1]);
    if (fork() != 0) return;
    setsid();  // not reached by an interrupt from the keyboard
    alive = Fd();
    while (read(end.get(), ends, 1) < 0) {
    }
    for (std::vector<pid_t> left; !(left = processes_in(folder)).empty(); usleep(5'000)) {
      for (const pid_t process : left) kill(process, SIGKILL);
    }
    _exit(0);
  }
  ~Daemon() override {
    started.clear();
    alive = Fd();
    while (wait(nullptr) > 0) {
    }
  }

  /// Starts a daemon; its id, once it has its socket.
  pid_t start(std::vector<std::string> options = {}) {
    options.emplace_back("-m:2");
    EXPECT_EQ(0, started.emplace_back(home, options).wait());
    const auto pid = static_cast<pid_t>(Packet{0, lock()}.field(0, 4));
    EXPECT_TRUE(eventually([&] { return link(pid, "fd/1").find("socket:") == 0; }));
    return pid;
  }

  /// Runs it to its end; its exit status, a space, and all that it wrote.
  std::string run(const std::vector<std::string>& options) const {
    Program program(home, options);
    const int status = program.wait();
    return std::to_string(status) + " " + program.out() + program.err();
  }

  /// Stops the daemon; gives what end_of() does.
  int stop(pid_t daemon) const {
    Program program(home, {"-m:3"});
    const int status = end_of(daemon);  // at once, for a zombie counts as running
    EXPECT_EQ(0, program.wait());
    EXPECT_EQ("Already running! trying to stop...\nOK!  stoped!\n", program.out());
    EXPECT_FALSE(fs::exists(home.lock()));
    return status;
  }

  /// How the daemon ended, as waitpid() tells it: 0, or the signal, or 256 * status.
  static int end_of(pid_t daemon) {
    int status = -1;
    EXPECT_TRUE(eventually([&] { return waitpid(daemon, &status, WNOHANG) != 0; }));
    return status;
  }

  /// Freezes the daemon for good: the copy that would thaw it is killed.
  void freeze() const {
    Program killed(home, {"-m:4", "-u:9999"});
    EXPECT_TRUE(eventually([&] { return killed.out() == kFrozen; }));
  }

  std::string lock() const { return read_file(home.lock()); }

  static std::string link(pid_t pid, const std::string& name) {
    std::error_code none;
    return fs::read_symlink("/proc/" + std::to_string(pid) + "/" + name, none);
  }
};

TEST_F(Daemon, DetachesAndShowsNothingFromThenOn) {
  home.write("in/a", "abc");
  home.write("list", "127.0.0.1 in far\n127.0.0.1 none\n");
  const pid_t pid = start({"-v:2", "-l:1", "-k:1", "-j:list", "-c:99"});
  const std::string told = started.back().out(), id = std::to_string(pid);
  EXPECT_EQ("\nstart daemon\n", told.substr(told.size() - 14));
  const std::regex leader("\\) . \\d+ " + id + " " + id + " 0 ");  // of group, session; no terminal
  EXPECT_TRUE(std::regex_search(read_file("/proc/" + id + "/stat"), leader));
  EXPECT_NE(std::string::npos, read_file("/proc/" + id + "/status").find("\nUmask:\t0000\n"));
  EXPECT_EQ(folder, link(pid, "cwd"));
  EXPECT_EQ(home.lock(), link(pid, "fd/0"));
  EXPECT_EQ(std::string::npos, link(pid, "fd/2").find("memfd"));
  const auto log = [&] { return read_file(home.path("tarnwick_logs.txt")); };
  EXPECT_TRUE(eventually([&] { return log().find("!!!111") != std::string::npos; }));
  EXPECT_EQ(record(pid), lock());
  EXPECT_EQ(0, stop(pid));
  EXPECT_EQ(told, started.back().out());
  EXPECT_EQ("", started.back().err());
  const std::regex line("[0-9A-F]{30} " + home.path("in/a") + "\n");
  EXPECT_TRUE(std::regex_match(read_file(home.path("trash/trash_log")), line));
  EXPECT_EQ("Start Tarnwick Server #\n# > Sent file " + home.path("in/a (1)") + "\n\nFolder " +
                home.path("in") + " is empty now.\n1 files was transfered.\n\nfolder " +
                home.path("none") + " was not found !!!111.\n\n" +
                "\nsent 0 files \nStop Tarnwick Server  #\n\n",
            std::regex_replace(log(), std::regex(R"(\d\d/\d\d/\d{4} [\d:]{8})"), "#"));
  const auto packets = net.packets();
  EXPECT_EQ(2U, packets.size());
  EXPECT_EQ("abc", rebuild(packets)["far/a"].at(0));
}

TEST_F(Daemon, KeepsTheFileWhenItFailsOrIsKilledAndIsSucceeded) {
  const std::string file(30'000, 'x');
  const pid_t failing = start({"-i:nowhere"});
  home.write("in/a", file);
  EXPECT_EQ(256, end_of(failing));
  EXPECT_EQ(record(failing), lock());
  EXPECT_EQ("", started.back().out() + started.back().err());
  const pid_t killed = start({"-v:1", "-s:0.01"});
  const auto dead = "\npid " + std::to_string(failing) + " is dead\n";
  EXPECT_NE(std::string::npos, started.back().out().find(dead));
  EXPECT_TRUE(eventually([&] { return !net.packets().empty(); }));
  kill(killed, SIGKILL);
  EXPECT_EQ(SIGKILL, end_of(killed));
  EXPECT_EQ(record(killed), lock());
  EXPECT_EQ(file, read_file(home.path("in/a")));
  net.packets();
  start();
  EXPECT_TRUE(eventually([&] { return !home.has("in/a"); }));
  EXPECT_EQ(file, rebuild(net.packets())["/a"].at(0));
}

TEST_F(Daemon, LeavesALockThatIsNotItsOwnAnyMore) {
  const pid_t pid = start();
  std::fstream(home.lock(), std::ios::in | std::ios::out).seekp(4).put('\1');
  EXPECT_TRUE(eventually([&] { return !fs::exists(home.lock()); }));
  std::ofstream(home.lock()) << record(getpid());
  EXPECT_EQ(0, end_of(pid));
  EXPECT_EQ(record(getpid()), lock());
}

TEST_F(Daemon, SendsEachFileOnceAndTheJournalInBetween) {
  std::map<std::string, std::vector<std::string>> sent;
  const auto feed = [&](const std::string& name) {
    home.write("in/" + name, sent["/" + name].emplace_back(name.size() * 2000, 'x'));
    EXPECT_TRUE(eventually([&] { return !home.has("in/" + name); }));
  };
  const auto send_journal = [&](const std::string& outcome) {
    EXPECT_EQ(outcome, run({"-m:4"}));
    sent["/trash_log"].push_back(read_file(home.path("trash/trash_log")));
  };
  for (const std::string round : {"1", "22"}) {
    const pid_t pid = start({"-k:1"});
    feed(round + "first");
    send_journal("0 " + kFrozen + kThawed);
    feed(round + "second");
    EXPECT_EQ(0, stop(pid));
    EXPECT_EQ(std::vector<pid_t>(), processes_in(folder));
  }
  send_journal("0 ");
  EXPECT_FALSE(fs::exists(home.lock()));
  const std::string& journal = sent["/trash_log"].back();
  EXPECT_EQ(4, std::count(journal.begin(), journal.end(), '\n'));
  const auto packets = net.packets();
  EXPECT_TRUE(sent == rebuild(packets));
  for (const Packet& packet : packets) {
    if (!packet.is_header()) continue;
    EXPECT_EQ(packet.bytes.substr(84).c_str() == "trash_log"s ? 1U : 0U, packet.field(52, 2));
  }
}

TEST_F(Daemon, WaitsWhileFrozenAndIsThawedHoweverTheJournalFares) {
  const pid_t pid = start();
  const auto thawed = [&](const std::string& outcome, const std::vector<std::string>& options) {
    EXPECT_EQ(outcome, run(options));
    EXPECT_EQ(record(pid), lock());
  };
  const std::string refusal = "The scan list is empty: the trash journal has no receiver.\n";
  const auto fds = [&] {
    freeze();
    EXPECT_EQ(record(pid, 2, 2), lock());
    const fs::directory_iterator links("/proc/" + std::to_string(pid) + "/fd");
    return std::distance(begin(links), end(links));
  };
  thawed("0 " + kFrozen + kThawed, {"-m:4"});  // there is no journal yet
  home.write("trash/trash_log", "x");
  const auto at_start = fds();
  for (int i = 0; i < 40; ++i) home.write("in/" + std::to_string(i), "x");
  sleep(2);  // longer than a cycle
  EXPECT_TRUE(home.has("in/0") && home.has("in/39"));
  thawed("1 " + kFrozen + "inet_aton() failed\n", {"-m:4", "-i:nowhere"});
  EXPECT_TRUE(eventually([&] { return fs::is_empty(home.path("in")); }));
  thawed("255 " + kFrozen + refusal + kThawed, {"-m:4", "-j:none"});
  thawed("255 " + kFrozen + "Error MTU\n1400..65507Can't open socket!\n", {"-m:4", "-t:1"});
  EXPECT_EQ(at_start, fds());
  EXPECT_EQ(0, stop(pid));
}

TEST_F(Daemon, IsKilledAfterItsGraceWhenItHangs) {
  const pid_t pid = start();
  kill(pid, SIGSTOP);
  EXPECT_EQ("255 Can't start in daemon! Already running!\n", run({"-m:2"}));
  EXPECT_EQ("255 Already running! trying to freez...\nError! Not frozzen!\n", run({"-m:4"}));
  EXPECT_EQ(record(pid), lock());
  const auto asked = std::chrono::steady_clock::now();
  EXPECT_EQ(SIGKILL, stop(pid));
  EXPECT_LE(std::chrono::seconds(1), std::chrono::steady_clock::now() - asked);
}

TEST_F(Daemon, ThatCantBeThawedOrKilledIsReported) {
  // our programs may not kill what another user runs
  if (prctl(PR_CAPBSET_DROP, CAP_KILL) != 0) GTEST_SKIP() << "needs the right to give up rights";
  const pid_t owner = fork();
  if (owner == 0) {
    if (chdir(folder.c_str()) == 0 && setuid(65534) == 0) pause();
    _exit(1);
  }
  std::ofstream(home.lock()) << record(owner, 0, 2);
  EXPECT_EQ("255 " + kFrozen + kThawing + "Error! Not unfrozzen!\n", run({"-m:4"}));
  EXPECT_EQ(record(owner, 0, 2), lock());
  EXPECT_EQ("255 Already running! trying to stop...\nERROR!  is not stoped!\n", run({"-m:3"}));
  EXPECT_EQ(record(owner, 1, 2, 1), lock());
}

}  // namespace
