// Scan list, walk and readiness, with a SendFile() that sends nothing.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <set>

#include "scan/counters.h"
#include "scan/file_ready.h"
#include "scan/scan_list.h"
#include "scan/walk.h"
#include "send/send_file.h"
#include "state/metrics.h"
#include "tests/support.h"

static int result;

static std::function<void()> on_send;
static std::string sent_name;  // below the scan folder
static long links_told;        // in the whole run

int SendFile(SourceFile& file, const std::string& sub, unsigned short) {
  sent_name = (sub.empty() ? "" : sub + "/") + file.entry().name;
  on_send();
  return result;
}

struct Scan : StateTest {
  Scan() {
    result = kSent, accs_err = 0, on_send = [] {};
    folder.abs_path = dir.root;
    cur_folder = &folder;
  }
  int walk() const { return scan_dir("", dir.root); }
  bool goes(const std::string& name) const {
    return send_if_ready({at.get(), name, dir.path(name)}) == 1;
  }

  const Fd at{open(dir.root.c_str(), O_PATH | O_CLOEXEC)};

  scan_folder folder;
};

TEST_F(Scan, RemovesWhatItEmptiedBottomUpAndCountsTheRest) {
  dir.file("one/two/three/.a");
  EXPECT_EQ(0, walk());
  EXPECT_TRUE(fs::is_empty(dir.root));
  EXPECT_EQ(Pauses(4, 20000), pauses);
  EXPECT_EQ("a/b", relative_sub_folder("//a/b/f", "/") + relative_sub_folder("//f", "/"));
  settings.blk_ext = "no";
  for (const char* name : {"a.no", "one/two/b.no", "one/c.no"}) dir.file(name);
  on_pause = [&](std::uint32_t) { dir.file("late/new.no"); };  // a writer returns
  EXPECT_TRUE(fs::create_directory(dir.path("late")));
  EXPECT_EQ(4, walk());
  EXPECT_EQ(0, accs_err);
  result = kEscape;
  dir.file("x");
  EXPECT_EQ(-1, walk());
  EXPECT_TRUE(stop_requested());
  EXPECT_TRUE(dir.exists("x"));
}

TEST_F(Scan, EndsTheRunAtTheEleventhFailedRemoval) {
  const TempDir empty;
  fs::create_directory_symlink(empty.root, dir.path("link"));
  accs_err = 9;
  EXPECT_EQ(1, walk());
  EXPECT_TRUE(dir.exists("link"));
  EXPECT_EQ((Pauses{20000, 1000000}), pauses);
  EXPECT_FATAL(walk(), "[20000][1000000]\nERROR: access to objects. Stop.\n[2000000]");
}

TEST_F(Scan, HoldsFilesBackByNameSizeAndOpenDescriptor) {
  settings.blk_mask = "tmp", settings.blk_ext = "part", settings.zero_ign = 1;
  dir.file("0", "");
  for (const char* name : {"tmp_a", "tmp", "x.part", ".part"}) dir.file(name);
  metrics = {};
  EXPECT_EQ(5, walk());
  EXPECT_EQ((WaitingCounts{2, 2, 1, 0, 0}), metrics.waiting);
  EXPECT_FALSE(goes("absent"));
  for (const char* name : {"a_tmp", "Tmp", "x.PART", "x.part.gz", "part"}) {
    dir.file(name);
    EXPECT_TRUE(goes(name)) << name;
    EXPECT_FALSE(dir.exists(name)) << name;
  }
  EXPECT_FALSE((std::ifstream(dir.file("held")), goes("held")));
  settings.zero_ign = 0, settings.trash_active = 1;
  EXPECT_TRUE(goes("held"));
  EXPECT_TRUE(goes("0"));
  EXPECT_TRUE(dir.exists("0"));  // the trash has it
}

TEST_F(Scan, CountsNoErrorForWhatOthersTookAwayAndOneForWhatCannotBeRemoved) {
  on_send = [&] { fs::remove(dir.path("f")); };
  EXPECT_TRUE(goes(fs::path(dir.file("f")).filename()));
  EXPECT_EQ(0, accs_err);
  on_send = [&] { fs::remove(dir.path("sub/f")), fs::remove(dir.path("sub")); };
  dir.file("sub/f");
  EXPECT_EQ(1, walk());
  EXPECT_EQ(0, accs_err);
  on_send = [] {};
  on_rename = [](unsigned) { return EPERM; };
  settings.verboze = 1;
  EXPECT_TRUE(goes(fs::path(dir.file("f")).filename()));
  EXPECT_EQ(1, accs_err);
  EXPECT_NE(std::string::npos, console.str().find("\nERROR: can't remove file " + dir.path("f")));
}

TEST_F(Scan, StaysInTheFolderThatItOpenedWhateverItsNameMeans) {
  const TempDir outside;
  outside.file("f", "theirs");
  dir.file("sub/f", "ours");
  on_send = [&] {
    fs::rename(dir.path("sub"), dir.path("moved"));
    fs::create_directory_symlink(outside.root, dir.path("sub"));
  };
  (void)scan_dir(dir.root, "sub");
  EXPECT_FALSE(dir.exists("moved/f"));
  EXPECT_EQ("theirs", contents(outside.path("f")));
  fs::remove(dir.path("sub")), dir.file("sub/f");
  fs::remove(dir.path("moved")), on_send = [] {};
  on_pause = [&](std::uint32_t us) {  // emptied, and exchanged before it is removed
    if (us == 20000 && !dir.exists("sub/f") && !dir.exists("moved")) {
      fs::rename(dir.path("sub"), dir.path("moved"));
      fs::create_directory_symlink(outside.root, dir.path("sub"));
    }
  };
  (void)walk();
  EXPECT_EQ(0, accs_err);
}

TEST_F(Scan, WalksNoFolderWithinItself) {
  dir.file("sub/f");
  fs::create_directory_symlink("..", dir.path("sub/up"));
  fs::create_directory_symlink(".", dir.path("here"));
  int sent = 0;
  on_send = [&] { ++sent; };
  EXPECT_EQ(2, walk());
  EXPECT_EQ(1, sent);
  EXPECT_EQ(0, accs_err);
  links_told += std::count(system_log.begin(), system_log.end(), '\n');
}

TEST_F(Scan, LeavesWhatALinkOfAStrangerLeadsTo) {
  const TempDir ours;  // only root gives links away: others are strangers themselves
  const bool is_root = geteuid() == 0;
  other_uid = is_root ? 0 : kStranger;
  const std::string leads_to = is_root ? ours.root : "/etc", file = ours.file("f");
  fs::create_symlink(leads_to, dir.path("d"));
  fs::create_symlink(is_root ? file : "/etc/passwd", dir.path("f"));
  for (const char* name : {"d", "f"}) EXPECT_EQ(is_root, give_away(dir.path(name)));
  EXPECT_EQ(2, walk());
  EXPECT_TRUE(ours.exists("f"));
  links_told += std::count(system_log.begin(), system_log.end(), '\n');
  EXPECT_EQ(1, links_told);
  EXPECT_EQ(-1, scan_dir(dir.root, "d"));
  other_uid = 0;
}

TEST_F(Scan, GivesWhatAKillLeftItsNameBack) {
  dir.file(".tarnwick-taken~a");
  std::multiset<std::string> sent, wanted{"a", "c", "sub/.tarnwick-taken~/e"};
  for (const std::string b : {"b0", "b1", "b2", "b3", "b4", "b5", "b6", "b7"}) {
    const std::string aside = ".tarnwick-taken~" + b;
    dir.file(aside, "old"), dir.file(b, "new");  // met in either order
    wanted.insert({aside, b});
  }
  dir.file(".tarnwick-taken~/c");
  const TempDir other;  // reached by a link of that name: walked, but not given back
  other.file("e"), fs::create_directory(dir.path("sub"));
  fs::create_directory_symlink(other.root, dir.path("sub/.tarnwick-taken~"));
  settings.blk_ext = "no", dir.file(".tarnwick-taken~d.no");
  on_send = [&] { sent.insert(sent_name); };
  for (int pass = 0; pass < 3; ++pass) (void)walk();
  EXPECT_EQ(wanted, sent);
  EXPECT_TRUE(dir.exists("d.no"));
  EXPECT_EQ(2, std::distance(fs::directory_iterator(dir.root), {}));
}

TEST_F(Scan, SendsAFileOnlyWhenItIsOlderThanTheWait) {
  settings.time_send_wait = 5;
  for (const long age : {0L, 5L, 6L, -100L, 3'800'000'000L}) {
    bool sent = false;
    for (std::time_t now = 0; now != std::time(nullptr);) {  // all within one second
      now = std::time(nullptr);  // lags behind the clocks that show fractions
      const timespec modified{now - age, 0};
      const timespec times[] = {modified, modified};
      EXPECT_EQ(0, utimensat(AT_FDCWD, dir.file("f").c_str(), times, 0));
      sent = goes("f");
    }
    EXPECT_EQ(age < 0 || age > 5, sent) << age;
  }
}

TEST_F(Scan, ListHasAnEntryForEachLineWithAFolderAndShowsEveryRead) {
  const std::string text =
      "1.2.3.4:55 /in to/b\na  /in  b  c \na: /in\na:-1:2x /in   \n  /in\na out\n"
      "a\tb /c\td\te\na /in\r\n\nword\n   \na  \na\t/in\n/last /in\n";
  settings.verboze = 1, settings.scan_list_name = dir.file("list", text);
  make_scan_list();
  std::string got;
  for (const scan_folder& in : scan_list)
    got += in.ip + "," + std::to_string(in.port) + "," + in.abs_path + "," + in.dst_dir + ";";
  const std::string here = fs::current_path();
  EXPECT_EQ("1.2.3.4,55,/in,to/b;a,55001,/in,b  c ;a,0,/in,;a,-1,/in,;,55001,/in,;a,55001," + here +
                "/out,;a\tb,55001,/c\td\te,;a,55001,/in\r,;/last,55001,/in,;",
            got);
  EXPECT_EQ(text + "\n", console.str());  // the last read is empty
  EXPECT_EQ("", system_log);
  settings.scan_list_name = dir.path("");  // opens, but can't be read
  make_scan_list();
  EXPECT_EQ("error: can't read all of the scan list " + settings.scan_list_name + "\n", system_log);
  EXPECT_TRUE(scan_list.empty());
}
