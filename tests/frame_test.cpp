#include "frame/command_line.h"
#include "frame/config_file.h"
#include "tests/support.h"

using FirstSettings = StateTest;

static const fs::path kHere = fs::path(__FILE__).parent_path();

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
  EXPECT_TRUE(!LoadConfig(true) && SaveConfig());
  EXPECT_EQ(contents(kHere / "first_cfg.txt"), contents(dir.path("cfg")));
  dir.file("cfg",
           "a:A\nb= B \r\nc: 1x\nd:2\ne:E\nf:F # f\ng:G\rg\r\ni:I\nj:j\nj:\nk:3\nl:4\nm:5\n"
           "p:x\nq:-7\nt:8\nu:10\nv:11\nw:W\nx:4294967308\ny:Y\n#z:9\nZ:9\nh:9\nn:9\no:9\n"
           "r:9\nv\nf\n\ns:2.5\nz:13");
  EXPECT_TRUE(LoadConfig(true) && settings.lcs == "A" && settings.config_name == dir.path("cfg"));
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
