// tarnwick-check against the sender: mistakes put in one at a time, and files as it said.
#include <sched.h>

#include <algorithm>
#include <regex>
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
  return run(home, "find . -printf '%p %s %C@\\n' | sort").text;
}

struct Mistake {
  std::string locale, options, said, before;
  int status;
};

/// The rows of mistakes.txt.
std::vector<Mistake> mistakes() {
  std::vector<Mistake> found;
  std::ifstream file(MISTAKES);
  const std::regex row("(.*?) *\\| (\\d) \\| (.*?) \\| ?(.*)");
  std::string locale;
  for (std::string line; std::getline(file, line);) {
    std::smatch field;
    if (line[0] == '#') continue;
    if (line.substr(0, 3) == "== ") {
      locale = line.substr(3);
    } else if (std::regex_match(line, field, row)) {
      found.push_back({locale, field[1], field[3], field[4], std::stoi(field[2])});
    } else {
      ADD_FAILURE() << "no row: " << line;
    }
  }
  return found;
}

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
  const std::vector<Mistake> all = mistakes();
  EXPECT_LT(50U, all.size());
  for (const Mistake& mistake : all) {
    SCOPED_TRACE(mistake.options + "\n" + mistake.said);
    const TempDir home;
    make_good(home);
    ASSERT_EQ(0, run(home, "true; " + mistake.before).status);
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
  const Answer made = run(home, R"(
    mkdir -p in/sub/deep in/hollow/inner outside && mkfifo in/pipe input
    for name in plain mask_a a.tmp sub/deep/x sub/.hidden sub/open b.tmp.x young имя 'tail space ' \
      .tarnwick-taken~left .tarnwick-taken~plain; do head -c 3000 /dev/zero >"in/$name"; done
    for name in in/$(printf 'n%.0s' $(seq 255)) outside/far target; do echo >$name; done
    touch in/empty && ln in/plain in/sub/hard
    ln -s ../target in/link && ln -s ../outside in/folder
    ln -s none in/dangling && ln -s .. in/sub/loop
    find in target outside ! -name young -exec touch -h -d @1000000000 {} +)");
  ASSERT_EQ(0, made.status) << made.text;
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
  if (input == "</dev/null" && !options.empty()) ++going;
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
  home.write("tarnwick_cfg", "i:127.0.0.1\nf:in\nu:2\nd:2\nc:0\ns:10\n");
  home.write("in/a", std::string(400'000, 'x'));
  const std::string text = check(home, "--files").text;
  std::smatch found;
  ASSERT_TRUE(std::regex_search(text, found, std::regex("in ([\\d.]+) seconds or more"))) << text;
  EXPECT_NEAR(0.04 + 2 * 290 * 0.001130676 + 0.02, std::stod(found[1]), 0.051);
}

}  // namespace
