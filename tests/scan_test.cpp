// Scan list, walk and readiness, with a SendFile() that sends nothing.
#include <fstream>

#include "scan/counters.h"
#include "scan/file_ready.h"
#include "scan/scan_list.h"
#include "scan/walk.h"
#include "send/send_file.h"
#include "tests/support.h"

static int result;

int SendFile(const std::string&, const std::string&, unsigned short) { return result; }

struct Scan : StateTest {
  Scan() {
    result = kSent, accs_err = 0;
    folder.abs_path = dir.root;
    cur_folder = &folder;
  }
  int walk() const { return scan_dir("", dir.root); }
  bool goes(const std::string& name) const { return send_if_ready(dir.root, name) == 1; }

  scan_folder folder;
};

TEST_F(Scan, RemovesWhatItEmptiedBottomUpAndCountsTheRest) {
  dir.file("one/two/three/.a");
  EXPECT_TRUE(walk() == 0 && fs::is_empty(dir.root) && pauses == Pauses(4, 20000));
  EXPECT_EQ("a/b", relative_sub_folder("//a/b/f", "/") + relative_sub_folder("//f", "/"));
  settings.blk_ext = "no";
  for (const char* name : {"a.no", "one/two/b.no", "one/c.no"}) dir.file(name);
  on_pause = [&](std::uint32_t) { dir.file("late/new.no"); };  // a writer returns
  EXPECT_TRUE(fs::create_directory(dir.path("late")) && walk() == 4 && accs_err == 0);
  result = kEscape;
  EXPECT_TRUE(fs::exists(dir.file("x")) && walk() == -1 && stop_requested() && dir.exists("x"));
}

TEST_F(Scan, EndsTheRunAtTheEleventhFailedRemoval) {
  const TempDir empty;
  fs::create_directory_symlink(empty.root, dir.path("link"));
  accs_err = 9;
  EXPECT_TRUE(walk() == 1 && dir.exists("link") && pauses == (Pauses{20000, 1000000}));
  EXPECT_FATAL(walk(), "[20000][1000000]\nERROR: access to objects. Stop.\n[2000000]");
}

TEST_F(Scan, HoldsFilesBackByNameSizeAndOpenDescriptor) {
  settings.blk_mask = "tmp", settings.blk_ext = "part", settings.zero_ign = 1;
  dir.file("0", "");
  for (const char* name : {"tmp_a", "tmp", "x.part", ".part"}) dir.file(name);
  EXPECT_TRUE(walk() == 5 && !goes("absent"));
  for (const char* name : {"a_tmp", "Tmp", "x.PART", "x.part.gz", "part"})
    EXPECT_TRUE(fs::exists(dir.file(name)) && goes(name) && !dir.exists(name)) << name;
  EXPECT_TRUE(std::ifstream(dir.file("held")) && !goes("held"));
  settings.zero_ign = 0, settings.trash_active = 1;
  EXPECT_TRUE(goes("held") && goes("0") && dir.exists("0"));  // the trash has it
}

TEST_F(Scan, SendsAFileOnlyWhenItIsOlderThanTheWait) {
  settings.time_send_wait = 5;
  for (const long age : {0L, 5L, 6L, -100L, 3'800'000'000L}) {
    bool sent = false;
    for (std::time_t now = 0; now != std::time(nullptr);) {  // all within one second
      now = std::time(nullptr);
      const auto modified = fs::file_time_type::clock::now() - std::chrono::seconds(age);
      fs::last_write_time(dir.file("f"), modified);
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
  for (const auto& [remain, ip, port, path, dst, count] : scan_list)
    got += ip + "," + std::to_string(port) + "," + path + "," + dst + ";";
  const std::string here = fs::current_path();
  EXPECT_EQ("1.2.3.4,55,/in,to/b;a,55001,/in,b  c ;a,0,/in,;a,-1,/in,;,55001,/in,;a,55001," + here +
                "/out,;a\tb,55001,/c\td\te,;a,55001,/in\r,;/last,55001,/in,;",
            got);
  EXPECT_EQ(text + "\n", console.str());  // the last read is empty
}
