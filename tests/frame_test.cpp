#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <regex>

#include "frame/command_line.h"
#include "frame/config_file.h"
#include "ground/owners.h"
#include "state/metrics.h"
#include "state/scan_folder.h"
#include "tests/support.h"

using FirstSettings = StateTest;

static std::function<void()> on_fsync = [] {};

int fsync(int fd) {
  on_fsync();
  return static_cast<int>(syscall(SYS_fsync, fd));
}

static const fs::path kHere = TESTS;

/// Texts, then numbers, each in the order of their letters.
static std::string all() {
  const Settings& s = settings;
  std::ostringstream text;
  text << s.lcs_a << s.blk_mask << s.blk_ext << s.sdir << s.logs_name << s.ip << s.scan_list_name
       << s.dir_name << s.trash_path << s.time_wait << s.data_send << s.trash_active << s.logs
       << s.mode << s.port << s.send_serv << s.time_rescan << s.speed << s.udata_size << s.head_send
       << s.verboze << s.time_send_wait << s.zero_ign;
  return text.str();
}

static void parse(std::vector<std::string> arguments) {
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  parse_command_line(static_cast<int>(argv.size()), argv.data());
}

TEST_F(FirstSettings, ComeFromAFileOfLettersSeparatorsAndValues) {
  settings.config_name = dir.path("cfg");
  EXPECT_FALSE(LoadConfig(true));
  EXPECT_TRUE(SaveConfig());
  EXPECT_EQ(contents(kHere / "first_cfg.txt"), contents(dir.path("cfg")));
  dir.file("cfg",
           "a:A\nb= B \r\nc: 1x\nd:2\ne:E\nf:F # f\ng:G\rg\r\ni:I\nj:j\nj:\nk:3\nl:4\nm:5\n"
           "p:x\nq:-7\nt:8\nu:10\nv:11\nw:W\nx:4294967308\ny:Y\n#z:9\nZ:9\nh:9\nn:9\no:9\n"
           "r:9\nv\nf\n\ns:2.5\nz:13");
  EXPECT_TRUE(LoadConfig(true));
  EXPECT_EQ("A", settings.lcs);
  EXPECT_EQ(dir.path("cfg"), settings.config_name);
  EXPECT_EQ("A B EF # fGIWY123450-752.5810111213", all());
}

TEST_F(FirstSettings, FollowTheCommandLineFromLeftToRight) {
  parse({"", "-m#5", "-r:8", "-s:x", "-f:", "-b: B ", "-V:9", "v:9", "-n:9", "-", "-l", "-i"});
  EXPECT_EQ(" B tarnwick_logs.txt127.0.0.1TRASH_FOLDER520055500108014005000", all());
  parse({"", "-p:7", "-d:7", "-o:" + dir.file("cfg", "p:6\nd:6"), "-d:8"});
  EXPECT_EQ(68, settings.port * 10 + settings.data_send);
  EXPECT_FATAL(parse({"", "-o:/none"}), "\nCan't load config file /none\n[2000000]");
  EXPECT_FATAL(parse({"/a\\b/c", "-v:1", "-h", "-o:/none"}),
               contents(kHere / "usage.txt") + "[2000000]");
}

TEST_F(FirstSettings, TakeLongOptionsFromBothPlacesAndKeepWhyOneIsRefused) {
  parse({"", "--send-buffer=7", "--run-dir=a b", "--", "--no-such=1", "--run-dirs=x"});
  EXPECT_EQ("a b", settings.run_dir);
  EXPECT_EQ(7, settings.send_buffer);
  settings.config_name = dir.file("cfg", "--send-buffer=2K\r\n--run-dir= /x \n # --run-dir=y");
  EXPECT_TRUE(LoadConfig(true));
  EXPECT_EQ(" /x ", settings.run_dir);
  EXPECT_EQ(2048, settings.send_buffer);
  EXPECT_EQ("", settings.refusal);
  for (const std::string bad : {"", "0", "-1", "1x", "2G", "99999999999999999999"}) {
    settings.refusal = "";
    parse({"", "--send-buffer=" + bad});
    EXPECT_EQ(0U, settings.refusal.find("--send-buffer=" + bad + ": not a size; 1 to 2147483647"));
  }
  parse({"", "--run-dir"});
  EXPECT_EQ("--run-dir has no value: write --run-dir=VALUE", settings.refusal);
  EXPECT_EQ(2048, settings.send_buffer);
  parse({"", "--metrics="});
  EXPECT_EQ("--metrics= has no value", settings.refusal);
}

TEST_F(FirstSettings, HaveMetricsToldEveryFiveSecondsAndTroubleOnce) {
  settings.metrics = dir.path("folder/m");
  metrics.failed = {1, 2, 3, 4, 5, 6};
  metrics.cycles = 7, metrics.access_errors = 8, metrics.last_sent = 9;
  begin_metrics();
  fs::create_directory(dir.path("folder"));
  time_passed = 4;
  tell_metrics();
  EXPECT_FALSE(dir.exists("folder/m"));
  scan_list = {{1, "1.2.3.4", 5, "/a\"\\\n\xD0\xB6", "", 0, false, {6, 7, 8, {1, 2, 3, 4, 5}}}};
  scan_list.push_back(scan_list[0]);
  const PresentFile present("/f", 2);
  time_passed = 6;
  tell_metrics();
  const std::regex changing("(version=\"|written_timestamp_seconds )\\d[^\"\n]*");
  EXPECT_EQ(contents(kHere / "metrics.txt"),
            std::regex_replace(contents(settings.metrics), changing, "$1#"));
  EXPECT_EQ(
      "warning: can't write the metrics " + settings.metrics + ": No such file or directory\n",
      system_log);
  scan_list.clear();
}

TEST_F(FirstSettings, AreWrittenWholeOrNotAtAllAndThroughNoStrangersLink) {
  settings.config_name = dir.path("cfg");
  rlimit size{};
  getrlimit(RLIMIT_FSIZE, &size);
  const rlimit full{100, size.rlim_max};
  std::signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &full);
  EXPECT_TRUE(SaveConfig());
  setrlimit(RLIMIT_FSIZE, &size);
  EXPECT_FALSE(dir.exists("cfg"));
  on_fsync = [this] { EXPECT_FALSE(dir.exists("cfg")); };  // a kill would leave nothing
  EXPECT_TRUE(SaveConfig());
  on_fsync = [] {};
  EXPECT_EQ(contents(kHere / "first_cfg.txt"), contents(dir.path("cfg")));
  fs::remove(settings.config_name);
  EXPECT_EQ("warning: can't write all of the configuration file " + settings.config_name +
                ": File too large\n",
            system_log);
  ASSERT_EQ(0, mkfifo(settings.config_name.c_str(), 0600));
  const Fd reader(open(settings.config_name.c_str(), O_RDONLY | O_NONBLOCK));
  EXPECT_FALSE(SaveConfig());
  EXPECT_TRUE(fs::remove(settings.config_name)) << "it stays";
  const std::string victim = dir.file("victim");
  fs::create_symlink(victim, settings.config_name);
  EXPECT_TRUE(SaveConfig());
  EXPECT_EQ(contents(kHere / "first_cfg.txt"), contents(victim));
  if (!give_away(settings.config_name)) return;  // we are not root
  dir.file("victim");
  EXPECT_FALSE(SaveConfig());
  EXPECT_EQ("x", contents(victim));
}
