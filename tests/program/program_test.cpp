// One scan and cycle mode, seen from outside: files, datagrams, texts, statuses.
#include <linux/capability.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <regex>
#include <sstream>

#include "tests/program/support.h"

using namespace std::string_literals;

namespace {

struct Run : testing::Test {
  TempDir home;
  Collector net;

  void SetUp() override { home.write("tarnwick_cfg", "p:" + net.port + "\nf:in\nu:1\nd:1\nc:1\n"); }
};

/// The text with "#" for what differs from run to run.
std::string masked(const std::string& text) {
  static const std::regex changing(
      R"((pid |socket = |buffer: |0\.0\.1:|tarnwick )\d[\d.]*|\d\d/\d\d/\d{4} [\d:]{8}|[A-Z]\w\w [ \d]\d )"
      R"(\d{4}  [\d:]{8}|\S*tarnwick_\w{6})");
  return std::regex_replace(text, changing, "$1#");
}

/// The system's log, in a /dev of our own.
class SystemLog {
 public:
  ~SystemLog() {
    if (is_heard) umount2("/dev", MNT_DETACH);
  }
  /// The messages so far, without the time and whose they are.
  std::string told() const {
    std::string all, buffer(9000, '\0');
    for (ssize_t n; (n = recv(log_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT)) > 0;)
      all += buffer.substr(0, static_cast<std::size_t>(n)) + "\n";
    return std::regex_replace(all, std::regex("(<\\d+>)\\w+ +\\d+ [\\d:]+ [^:]*: "), "$1");
  }

  const sockaddr_un at{AF_UNIX, "/dev/log"};

 private:
  const Fd log_{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};

 public:
  const bool is_heard = unshare(CLONE_NEWNS) == 0 &&
                        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                        mount("tmpfs", "/dev", "tmpfs", 0, nullptr) == 0 &&
                        bind(log_.get(), reinterpret_cast<const sockaddr*>(&at), sizeof at) == 0;
};

struct Case : Run, testing::WithParamInterface<fs::path> {};

const std::vector<fs::path> kCases(fs::directory_iterator(CASES), {});
INSTANTIATE_TEST_SUITE_P(, Case, testing::ValuesIn(kCases),
                         [](const auto& test) { return test.param.stem().string(); });

// A case is a file: the options, then all that the run tells and leaves; what the system's
// log hears is compared where that can be had. Words that are no options, which the program
// ignores, set the scene: "held" (the file is open here), "owner" and "dead owner" (of a lock
// file that asks for a stop), "pipe" (a named one in the folder), "end_of_input" (at once),
// "unprivileged" (to do what only network administration may).
TEST_P(Case, TellsAndLeavesWhatItShould) {
  std::string expected = read_file(GetParam());
  const std::string file = "in/sub/a.bin";
  std::istringstream words(expected.substr(0, expected.find('\n')));
  const auto scene = [&](const char* word) { return words.str().find(word) != std::string::npos; };
  home.write(file, std::string(2000, 'x'));
  home.write("list", "127.0.0.1 in " + std::string(70'000, 'd'));
  home.write("open.key", std::string(64, 'a')), home.write("bad.key", "x");
  chmod(home.path("bad.key").c_str(), 0600), chmod(home.path("open.key").c_str(), 0644);
  const std::ifstream holder(scene("held") ? home.path(file) : "");
  const std::int32_t record[] = {scene("dead") ? 0x7FFFFFFF : getpid(), 1, 0};
  const std::string lock(reinterpret_cast<const char*>(record), sizeof record);
  if (scene("owner")) std::ofstream(home.lock()) << lock;
  if (scene("pipe")) mkfifo(home.path("in/pipe").c_str(), 0600);
  const SystemLog log;
  if (scene("unprivileged")) home.ordinary = false;
  Program program(home, {std::istream_iterator<std::string>(words), {}}, [&] {
    if (scene("unprivileged")) prctl(PR_CAPBSET_DROP, CAP_NET_ADMIN);
  });
  if (scene("end_of_input")) program.input = Fd();
  std::ostringstream told;
  told << words.str() << "\nstatus " << program.wait() << "\n" << masked(program.out());
  told << "== standard error\n" << masked(program.err());
  told << "== log\n" << masked(read_file(home.path("tarnwick_logs.txt")));
  told << "== left\n" << (home.has(file) ? "file\n" : "") << (home.has("in/pipe") ? "pipe\n" : "");
  if (fs::exists(home.lock())) told << (read_file(home.lock()) == lock ? "lock\n" : "new lock\n");
  told << "== system's log\n" << masked(log.told());
  if (!log.is_heard) expected.resize(expected.find("== system's log\n") + 16);
  EXPECT_EQ(expected, told.str());
}

TEST_F(Run, IsHeardByTheSystemAsADaemonAndNotHeldUpWhereTheLogIsFull) {
  SystemLog log;
  if (!log.is_heard) GTEST_SKIP() << "needs the right to mount";
  Program daemon(home, {"-m:2", "-f:none", "-c:99"});
  std::string heard;
  EXPECT_TRUE(eventually([&] { return !(heard += log.told()).empty(); }));
  EXPECT_EQ("<28>can't open the folder " + home.path("none\n"), heard);
  const Fd other(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ASSERT_EQ(0, connect(other.get(), reinterpret_cast<const sockaddr*>(&log.at), sizeof log.at));
  while (send(other.get(), "x", 1, MSG_DONTWAIT) == 1) continue;  // until it is full
  EXPECT_EQ(255, Program(home, {}).wait());
}

TEST_F(Run, SendsATreeByteForByteAndRemovesIt) {
  std::map<std::string, std::vector<std::string>> sent;
  const auto add = [&](const std::string& path, std::size_t size) {
    std::string& bytes = sent[path].emplace_back(size, '\0');
    for (char& c : bytes) c = static_cast<char>(random());
    home.write("in" + path, bytes);
  };
  const std::pair<const char*, std::size_t> files[] = {
      {"a b ", 0},  {"new\nline", 1}, {"Имя", 1379},  {"\xff\xfe", 1380},
      {".x", 1381}, {"a\\b", 2760},   {"-h", 70'000}, {"*", 2'500'000}};
  for (const std::string folder : {"/", "/a/ b/.c/", "/Папка/", "/\n/\xff/"}) {
    for (const auto& [name, size] : files) add(folder + name, size);
    for (std::size_t i = 0; i < 60; ++i) add(folder + std::to_string(i), i * 61);
  }
  add("/" + std::string(255, 'n'), 50'000'000);
  EXPECT_EQ(0, Program(home, {"-a:cp1251", net.pace()}).wait());
  home.ordinary = true;  // with a small buffer, too
  add("/ordinary", 5'000'000);
  EXPECT_EQ(0, Program(home, {"-a:cp1251", net.pace()}).wait());
  EXPECT_TRUE(fs::is_empty(home.path("in")));
  auto received = rebuild(net.packets());
  for (const auto& [path, passes] : sent) EXPECT_TRUE(received[path] == passes) << path;
}

TEST_F(Run, OrdersPacketsAsConfiguredAndMovesFilesToTheTrash) {
  const std::string path = home.path("one/под/файл.bin");
  home.write("one/под/файл.bin", std::string(2765, 'x'));
  home.write("two/empty", "");
  home.write("list", "127.0.0.1 one s 1/Вх\n127.0.0.1:" + net.port + " two\n");
  const auto begin = static_cast<std::uint64_t>(std::time(nullptr));
  Program program(home, {"-j:list", "-u:2", "-d:2", "-q:3", "-k:1", "-y:a/b"});
  EXPECT_EQ(0, program.wait());
  const std::vector<Packet> packets = net.packets();
  std::string order;
  for (const Packet& packet : packets) {
    EXPECT_EQ(packet.bytes.size(), 20 + packet.field(16, 4));
    const auto number = [&](std::size_t at) { return std::to_string(packet.field(at, 8)); };
    order += packet.is_service() ? " s" + number(20) + "/" + number(28) : " " + number(8);
  }
  ASSERT_EQ(" 0 0 1 s4/4 2 3 s7/7 0 0 s10/10 1 2 s13/13 3 0 s16/2 0 0 s19/5 0", order);
  EXPECT_EQ(std::vector<std::string>(2, std::string(2765, 'x')), rebuild(packets).rbegin()->second);
  const Packet& header = packets[0];
  EXPECT_EQ(2765U, header.field(20, 8));
  EXPECT_GE(60U, header.field(44, 8) - begin);
  EXPECT_EQ(std::string(32, '\0') + "\xF4\xE0\xE9\xEB.bin\0s 1/\xC2\xF5/\xEF\xEE\xE4\0\0"s,
            header.bytes.substr(52));
  char name[64];
  std::snprintf(name, sizeof name, "00%08lX%08lX0000%08lX", header.field(44, 4), header.field(0, 4),
                header.field(40, 4));
  EXPECT_TRUE(home.has("a/b/"s + name));
  EXPECT_FALSE(fs::exists(path));
  EXPECT_EQ(0U, read_file(home.path("a/b/trash_log")).find(name + (" " + path) + "\n"));
  EXPECT_EQ(0U, program.out().find("a/b/trash_log\na/b/"s + name + "\na/b/trash_log\n"));
}

TEST_F(Run, PacesDataPacketsAndKeepsTheFileAtEscape) {
  home.write("in/\x1b", std::string(20'000'000, 'x'));  // takes 16 s
  Program program(home, {"-v:1", "-s:10", "-m:1", "-l:1"});
  ASSERT_TRUE(eventually([&] { return program.out().find("\r5 %") != std::string::npos; }));
  EXPECT_EQ(2, write(program.input.get(), "q\x1b", 2));
  EXPECT_EQ(0, program.wait());
  EXPECT_TRUE(home.has("in/\x1b"));
  EXPECT_NE(std::string::npos, program.out().find(home.path("in/\x1b\n"))) << "no terminal";
  EXPECT_EQ(std::string::npos, read_file(home.path("tarnwick_logs.txt")).find("not found"));
  const std::vector<Packet> packets = net.packets();
  // the header, the first one, has 10 ms to itself; 1 ms for a clock being adjusted
  EXPECT_LE(packets.size() * 1'130'676 + 7'869'324, packets.back().arrived - packets[0].arrived);
}

TEST_F(Run, CyclesWithoutKeepingDescriptorsUntilItIsStopped) {
  fs::create_directory(home.path("in"));
  Program program(home, {"-m:1", "-v:1", "-l:1"});
  ASSERT_TRUE(eventually([&] { return program.out().find("d.\n.") != std::string::npos; }));
  const std::string fds = "/proc/" + std::to_string(program.pid) + "/fd";
  const auto count = [&] { return std::distance(fs::directory_iterator(fds), {}); };
  const auto at_start = count();
  for (int i = 0; i < 40; ++i) home.write("late/" + std::to_string(i) + "/f", "x");
  fs::rename(home.path("late"), home.path("in/late"));
  EXPECT_TRUE(eventually([&] { return !home.has("in/late") && count() == at_start; }));
  const Packet record{0, read_file(home.lock())};
  EXPECT_EQ(static_cast<std::uint64_t>(program.pid), record.field(0, 4));
  EXPECT_EQ(std::string(8, '\0'), record.bytes.substr(4));
  std::fstream(home.lock(), std::ios::in | std::ios::out).seekp(4).put('\1');
  EXPECT_EQ(0, program.wait());
  EXPECT_FALSE(fs::exists(home.lock()));
  EXPECT_TRUE(std::regex_search(program.out(), std::regex("\\.\nExtern terminated! \n\n$")));
  const std::regex sent("# > Sent file #/in/late/\\d+/f \\(\\d+\\)\n");
  EXPECT_EQ("Start Tarnwick Server #\n\nsent 0 files \nStop Tarnwick Server  #\n\n",
            std::regex_replace(masked(read_file(home.path("tarnwick_logs.txt"))), sent, ""));
}

TEST_F(Run, TellsItsStateInAFileAndIsNotEndedByTheQuestionForIt) {
  home.write("in/a", "four");
  home.write("in/~b", "x");
  Program program(home, {"-m:1", "-b:~", "--metrics=m"});
  ASSERT_TRUE(eventually([&] { return !home.has("in/a"); }));
  kill(program.pid, SIGUSR1);
  program.input = Fd();  // the end of the input ends the cycle
  EXPECT_EQ(0, program.wait());
  const std::string text =
      std::regex_replace(read_file(home.path("m")), std::regex("\\{folder[^}]*"), "{#");
  for (const char* line :
       {"files_sent_total{#} 1", "bytes_sent_total{#} 4", "datagrams_sent_total{#} 2",
        "files_waiting{reason=\"mask\"} 1", "present_file_parts 0"}) {
    EXPECT_NE(std::string::npos, text.find("\ntarnwick_"s + line + "\n")) << line << "\n" << text;
  }
}

TEST_F(Run, StartsFromTheConfigurationThatItWrote) {
  if (fs::exists("/etc/tarnwick_cfg")) GTEST_SKIP() << "/etc/tarnwick_cfg would be read instead";
  fs::remove(home.path("tarnwick_cfg"));
  EXPECT_EQ(0, Program(home, {"-h", "--version"}).wait());
  EXPECT_FALSE(home.has("tarnwick_cfg"));
  EXPECT_EQ(1, Program(home, {"-h"}).wait());
  EXPECT_EQ(read_file(FIRST_CONFIG), read_file(home.path("tarnwick_cfg")));
  home.write("scan_dir/a", std::string(70'000, 'x'));
  EXPECT_EQ(0, Program(home, {"-p:" + net.port}).wait());
  EXPECT_EQ(61'440U, net.packets().at(5).bytes.size());  // after five headers
}

}  // namespace
