// tarnwick-check against the sender: mistakes put in one at a time, and files as it said.
#include <sched.h>
#include <sys/stat.h>

#include <algorithm>
#include <regex>
#include <set>
#include <sstream>

#include "tests/program/support.h"

namespace {

struct Answer {
  int status;
  std::string text;
};

/// Runs a command in `home` by the shell.
Answer run(const TempDir& home, const std::string& command) {
  FILE* const pipe = popen(("cd '" + home.path("") + "' && " + command + " 2>&1").c_str(), "re");
  Answer answer;
  for (int c = 0; (c = std::fgetc(pipe)) != EOF;) answer.text += static_cast<char>(c);
  answer.status = WEXITSTATUS(pclose(pipe));
  return answer;
}

std::string own_options(const TempDir& home) {
  return home.ordinary ? " --send-buffer=64K --run-dir=. " : " ";
}

/// Runs the check, with options and redirections as the shell reads them.
Answer check(const TempDir& home, const std::string& options,
             const std::string& locale = "C.UTF-8") {
  return run(home, "LC_ALL=" + locale + " " TARNWICK_CHECK " </dev/zero --program=" +
                       home.program() + own_options(home) + options);
}

/// A setting against which there is nothing to say.
void make_good(const TempDir& home) {
  home.write("tarnwick_cfg", "# comment\nf:in\ni:127.0.0.1\ns:90\n");
  home.write("in/файл", "x");
}

/// All that lies in the folder, with its times.
std::string listing(const TempDir& home) {
  std::set<std::string> lines;
  for (const auto& entry : fs::recursive_directory_iterator(home.path(""))) {
    struct stat st {};
    lstat(entry.path().c_str(), &st);
    lines.insert(entry.path().string() + " " + std::to_string(st.st_size) + " " +
                 std::to_string(st.st_ctim.tv_sec) + "." + std::to_string(st.st_ctim.tv_nsec));
  }
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

struct Mistake {
  std::string options;
  std::string said;
  int status = 1;
  std::string before = "true";  ///< commands of the shell
  std::string locale = "C.UTF-8";
};

const std::vector<Mistake> kMistakes = {
    // words
    {"-m 2", "\"-m\", has no value and sets nothing: write -m:VALUE"},
    {"-m 2", "\"2\", is no option and has no effect"},
    {"--hepl", "\"--hepl\", is no option and has no effect"},
    {"-V:1", "is no option and has no effect: letters are small"},
    {"", "line 5, \"please ask\", sets -p to 0: \"ease ask\" is no number", 2,
     "echo please ask >>tarnwick_cfg"},
    {"", "line 5, \"r:3\", sets nothing: -r is an option of the command line only", 1,
     "echo r:3 >>tarnwick_cfg"},
    {"-s:9,5", "sets -s to 9: \",5\" behind the number is ignored"},
    {"-c:3000000000", "sets -c to -1294967296: the number is too large"},
    {"-p:70 -p:71", "\"-p:70\", has no effect: argument "},
    {"-w:out", "is kept and used for nothing"},
    {"--seal=1", "sets nothing: --seal takes no value"},
    {"'-b:\"tmp\"'", "the quotation marks are part of the value"},
    {"-h", "-h prints the usage text and ends", 2},
    {"--send-buffer=all", "--send-buffer=all: not a size", 2},
    {"--repair=301", "--repair=301: not a percentage", 2},
    {"--sign=none.key", "--sign=none.key: No such file", 2},
    // values
    {"-m:5", "-m:5 is no mode"},
    {"-d:0", "nothing is sent: -u and -d must be 1 or more", 2},
    {"-t:1399", "-t:1399 can't be sent", 2},
    {"-s:0", "without -s nothing is paced"},
    {"-c:-1", "-c:-1 is negative"},
    {"-e:.tmp", "-e:.tmp never applies"},
    {"-b:a/b", "-b:a/b never applies"},
    // configuration
    {"-o:none", "the configuration file none can't be opened", 2},
    {"-f:in -i:127.0.0.1 -s:90", "there is no configuration file", 1, "rm tarnwick_cfg"},
    {"", "tarnwick_cfg can be changed by everybody", 1, "chmod 666 tarnwick_cfg"},
    // folders
    {"-f:gone", "/gone can't be opened: No such file"},
    {"-f:", "-f: without a value scans the working folder itself"},
    {"-f:", "the configuration file, ./tarnwick_cfg, lies in the folder"},
    {"-f:in/", "by the kernel: files that are open in it are not recognised"},
    {"-f:./in", "is spelled"},
    {"-j:none", "the scan list none can't be opened", 2},
    {"-j:list", "the scan list list names no folder", 2, "echo >list"},
    {"-j:list", "list, line 2, \"nonsense\", is skipped", 1,
     "printf '127.0.0.1 in\nnonsense\n' >list"},
    {"-j:list", "ends with a carriage return", 1, "printf '127.0.0.1 in out\r\n' >list"},
    {"-j:list", "/in is scanned twice", 1, "printf '127.0.0.1 in\n127.0.0.1 in b\n' >list"},
    {"-j:list", "/in/sub lies in ", 1,
     "mkdir in/sub; printf '127.0.0.1 in\n127.0.0.1 in/sub b\n' >list"},
    // trash, log, metrics
    {"-k:1 -y:in/trash", "the trash folder, in/trash/, lies in the folder"},
    {"-k:1 -y:/dev/shm/trash", "the trash folder /dev/shm/trash is on another file system"},
    {"-k:1 -y:tarnwick_cfg/trash", "the trash folder tarnwick_cfg/trash can't be used"},
    {"-l:1 -g:no/such/log", "the folder of the log no/such/log can't be made", 2},
    {"-l:1 -g:in", "the log in can't be written"},
    {"-l:1 -g:in/log", "the log, in/log, lies in the folder"},
    {"--metrics=no/m", "the metrics no/m can't be written"},
    // network
    {"-i:receiver.example", "\"receiver.example\" is no IPv4 address", 2},
    {"-i:127.0.0.010", "the address \"127.0.0.010\" means 127.0.0.8"},
    {"-p:65537", "port 65537 of 127.0.0.1 is none: it goes out as 1"},
    {"-p:0", "goes out as 0, to which nothing can be sent", 2},
    // lock, input
    {"--run-dir=none", "can't be created: No such file", 2},
    {"-m:3", "-m:3 has nothing to stop"},
    {"</dev/null", "standard input is at its end"},
    // names, links
    {"", "/in/файл goes out cut, as \"\"", 1, "true", "C"},
    {"", "the locale knows only ASCII", 1, "true", "C"},
    {"", "the system lacks the locale", 1, "true", "xx_YY"},
    {"-a:none", "the character set \"none\" can't be converted"},
    {"", "goes out cut, as \"a\"", 1, "echo >in/a文"},
    {"", "arrive under one name, \"a\"", 1, "echo >in/a文; echo >in/a書"},
    {"", "/in/link is followed: the files in the folder behind it are sent and deleted", 1,
     "mkdir in2; ln -s ../in2 in/link"},
    {"", "leads nowhere, and stays", 1, "ln -s none in/nowhere"},
};

TEST(Check, NamesEachMistakeAndSaysNothingOfAGoodSetting) {
  const TempDir good;
  make_good(good);
  const Answer fine = check(good, "");
  // without the right to look into processes of other users that is a warning each time
  const bool is_blind = fine.text.find("/proc hides") != std::string::npos ||
                        fine.text.find("can't be looked into") != std::string::npos;
  const int least = is_blind ? 1 : 0;
  ASSERT_EQ(least, fine.status) << fine.text;
  const Answer also = check(good, "-o:tarnwick_cfg -s:9e1");  // as the units call the sender
  EXPECT_EQ(least, also.status) << also.text;
  for (const Mistake& mistake : kMistakes) {
    SCOPED_TRACE(mistake.options + "\n" + mistake.said);
    const TempDir home;
    make_good(home);
    ASSERT_EQ(0, run(home, mistake.before).status);
    const std::string before = listing(home);
    const Answer answer = check(home, mistake.options, mistake.locale);
    EXPECT_EQ(before, listing(home));
    EXPECT_EQ(std::max(least, mistake.status), answer.status) << answer.text;
    EXPECT_NE(std::string::npos, answer.text.find(mistake.said)) << answer.text;
  }
}

TEST(Check, TellsWhereEachSettingComesFrom) {
  const TempDir home;
  make_good(home);
  home.write("more", "p:7\nc:8\n");
  const std::string text = check(home, "-p:6 -o:more -c:9 -l:1").text;
  for (const std::string line : {"-f +in +./tarnwick_cfg, line 2 ", "-p +7 +more, line 1 ",
                                 "-c +9 +argument \\d ", "-r +5 +default ", "-l +1 +argument \\d "})
    EXPECT_TRUE(std::regex_search(text, std::regex(line))) << line << "\n" << text;
}

TEST(Check, SeesACopyThatRuns) {
  const TempDir home;
  make_good(home);
  const Program running(home, {"-m:1", "-f:none"});
  ASSERT_TRUE(eventually([&] { return read_file(home.lock()).size() == 12; }));
  const Answer same = check(home, "");
  EXPECT_EQ(2, same.status);
  const std::string process = "process " + std::to_string(running.pid) + " (" + home.program();
  EXPECT_NE(std::string::npos, same.text.find("another copy is running: " + process)) << same.text;
  const Answer other = check(home, "--program=./other");
  EXPECT_NE(std::string::npos, other.text.find("is also that of " + process)) << other.text;
  const std::int32_t record[] = {getpid(), 0, 0};
  std::ofstream(home.lock()).write(reinterpret_cast<const char*>(record), sizeof record);
  const Answer stranger = check(home, "");
  EXPECT_EQ(2, stranger.status);
  EXPECT_NE(std::string::npos, stranger.text.find("which is no copy of")) << stranger.text;
}

/// Shell commands in a network of their own with one card, "card", of frames of 1,500 bytes.
bool enter_network() {
  return unshare(CLONE_NEWNET) == 0 &&
         std::system(
             "exec 2>/dev/null; ip link set lo up && ip link add card type veth peer name "
             "far && ip addr add 192.0.2.1/24 dev card && ip link set card up") == 0;
}

TEST(Check, KnowsTheWayOutOfTheMachine) {
  if (!enter_network()) GTEST_SKIP() << "needs the right to make a network, and ip";
  const TempDir home;
  make_good(home);
  const auto says = [&](const std::string& options, const std::string& text) {
    const Answer answer = check(home, options);
    EXPECT_NE(std::string::npos, answer.text.find(text)) << options << "\n" << answer.text;
    return answer.status;
  };
  EXPECT_EQ(2, says("-i:198.51.100.1", "nothing can be sent to 198.51.100.1: Network is"));
  EXPECT_EQ(1, says("-i:192.0.2.2", "card has no carrier"));
  ASSERT_EQ(0, std::system("ip link set far up"));
  EXPECT_EQ(1, says("-i:192.0.2.2", "192.0.2.2 has no permanent neighbour entry on card"));
  ASSERT_EQ(0, std::system("ip neigh add 192.0.2.2 lladdr 02:00:00:00:00:01 nud permanent dev card"
                           " && ip route add 198.51.100.0/24 via 192.0.2.2"));
  EXPECT_EQ(0, says("-i:192.0.2.2 -s:9600", "nothing to say"));
  EXPECT_EQ(0, says("-i:192.0.2.2 -t:1472", "nothing to say"));
  EXPECT_EQ(0, says("-i:198.51.100.1", "nothing to say"));  // by way of 192.0.2.2
  EXPECT_EQ(1, says("-i:192.0.2.2 -t:1473",
                    "goes out in 2 fragments, and is lost with any of them: a line that loses 1 % "
                    "of its frames loses 2.0 % of these; -t:1472 fits"));
  EXPECT_EQ(1, says("-i:192.0.2.2 -t:61440", "goes out in 42 fragments"));
  EXPECT_EQ(1, says("-i:192.0.2.2 -s:9700",
                    "puts 10061.4 Mbit/s on the line, more than the 10000 Mbit/s of card"));
}

/// A tree of every kind of file. The caller holds "open".
void plant(const TempDir& home) {
  for (const std::string name :
       {"plain", "mask_a", "a.tmp", "sub/deep/x", "sub/.hidden", "sub/open", "b.tmp.x",
        ".tarnwick-taken~left", ".tarnwick-taken~plain", "young", "имя", "tail space "})
    home.write("in/" + name, std::string(3000, 'x'));
  home.write("in/empty", "");
  home.write("in/" + std::string(255, 'n'), "x");
  home.write("outside/far", "x");
  home.write("target", "x");
  fs::create_directories(home.path("in/hollow/inner"));
  fs::create_symlink("../target", home.path("in/link"));
  fs::create_symlink("../outside", home.path("in/folder"));
  fs::create_symlink("none", home.path("in/dangling"));
  fs::create_symlink("..", home.path("in/sub/loop"));
  fs::create_hard_link(home.path("in/plain"), home.path("in/sub/hard"));
  mkfifo(home.path("in/pipe").c_str(), 0600);
  mkfifo(home.path("input").c_str(), 0600);  // where nothing comes, nor its end
  const timespec old[2] = {{1'000'000'000, 0}, {1'000'000'000, 0}};
  for (const auto& entry : fs::recursive_directory_iterator(home.path("in"))) {
    if (entry.path().filename() != "young")
      (void)utimensat(AT_FDCWD, entry.path().c_str(), old, AT_SYMLINK_NOFOLLOW);
  }
  (void)utimensat(AT_FDCWD, home.path("target").c_str(), old, 0);
  (void)utimensat(AT_FDCWD, home.path("outside/far").c_str(), old, 0);
}

/// What --files says of each path below "in".
std::map<std::string, bool> verdicts(const std::string& text) {
  std::map<std::string, bool> result;
  const std::regex line("(goes|stays) +\\S*?/in/(.*?)(: [^/]*| to 127\\.0\\.0\\.1:.*)");
  std::istringstream lines(text);
  for (std::string one; std::getline(lines, one);) {
    std::smatch found;
    if (std::regex_match(one, found, line)) result[found[2]] = found[1] == "goes";
  }
  return result;
}

/// "</dev/null" for an input at its end.
void compare(const std::string& options, const std::string& input) {
  SCOPED_TRACE(options + input);
  const TempDir home;
  const Collector net;
  plant(home);
  home.write("tarnwick_cfg", "i:127.0.0.1\np:" + net.port + "\nf:in\nu:1\nd:1\nc:0\ns:90\n");
  const std::ifstream holder(home.path("in/sub/open"));
  const std::string text = check(home, input + " --files " + options).text;
  const std::map<std::string, bool> said = verdicts(text);
  ASSERT_LT(15U, said.size()) << text;
  run(home, "LC_ALL=C.UTF-8 bash -c 'exec -a " + home.program() + " " TARNWICK + own_options(home) +
                options + "' " + input);
  std::size_t going = 0;
  for (const auto& [path, goes] : said) {
    const auto left = fs::symlink_status(home.path("in/" + path)).type();
    EXPECT_EQ(goes, left == fs::file_type::not_found) << path << "\n" << text;
    if (goes) ++going;
  }
  // a file that the end of input cuts off stays, and has begun to go out
  if (input == "</dev/null" && options != "") ++going;
  std::string sent;
  for (const auto& [path, passes] : rebuild(net.packets())) sent += path + "\n";
  EXPECT_EQ(going, std::count(sent.begin(), sent.end(), '\n')) << text << sent;
}

TEST(Check, TellsOfEveryFileWhatTheSenderThenDoes) {
  for (const char* options :
       {"", "-b:mask -e:tmp", "-z:1 -x:3600", "-k:1 -y:trash -b:.", "-d:0", "-v:1"})
    compare(options, "<>input");
  for (const char* options : {"", "-v:1"}) compare(options, "</dev/null");
}

TEST(Check, KnowsHowLongThePacketsTake) {
  const TempDir home;
  const Collector net;
  home.write("tarnwick_cfg", "i:127.0.0.1\np:" + net.port + "\nf:in\nu:2\nd:2\nc:0\ns:10\n");
  home.write("in/a", std::string(400'000, 'x'));
  const std::string text = check(home, "--files").text;
  std::smatch found;
  ASSERT_TRUE(std::regex_search(text, found, std::regex("in ([\\d.]+) seconds or more"))) << text;
  Program(home, {}).wait();
  const std::vector<Packet> packets = net.packets();
  ASSERT_FALSE(packets.empty());
  const double took = static_cast<double>(packets.back().arrived - packets[0].arrived) / 1e9;
  const double said = std::stod(found[1]);
  EXPECT_LE(said - 0.15, took);  // less the last pause and the rounding
  EXPECT_NEAR(0.04 + 2 * 290 * 0.001130676 + 0.02, said, 0.051);
}

}  // namespace
