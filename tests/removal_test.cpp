// What is removed, moved and noted after a transfer while others are at work in the folder.
#include "send/removal.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <map>

#include "send/trash.h"
#include "tests/support.h"

struct Removing : StateTest {
  SourceFile sent(const std::string& name, const std::string& content = "sent") const {
    dir.file(name, content);
    return opened(name);
  }
  SourceFile opened(const std::string& name) const {
    SourceFile file({at.get(), name, dir.path(name)});
    file.open();
    EXPECT_EQ(SourceFile::State::kOpen, file.state());
    return file;
  }
  static Removal remove(SourceFile file) {
    return take_away(file, [](Aside& taken) { return taken.remove(); });
  }
  /// All files in order of their names, with contents; names are cut after 20 bytes.
  std::string left() const {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(dir.root)) {
      if (!entry.is_directory()) files[fs::relative(entry, dir.root)] = contents(entry.path());
    }
    std::string all;
    for (const auto& [name, content] : files) all += name.substr(0, 20) + "=" + content + " ";
    return all;
  }
  /// Lets `change` happen right before the renaming number `number`, the first being 0.
  static void before_rename(int number, const std::function<void()>& change) {
    on_rename = [=, count = 0](unsigned) mutable {
      if (count++ == number) change();
      return 0;
    };
  }
  static void fail_renames(int error) {
    on_rename = [=](unsigned) { return error; };
  }
  void rename_over(const std::string& path, const std::string& content) const {
    fs::rename(dir.file("g", content), path);
  }

  const Fd at{open(dir.root.c_str(), O_PATH | O_CLOEXEC)};
  const std::string f = dir.path("f"), aside = ".tarnwick-taken~f",
                    long_name = std::string(255, 'n');
};

TEST_F(Removing, SparesWhatCameInThePlaceOfTheSentFile) {
  const std::function<void()> changes[] = {
      [&] { rename_over(f, "next"); }, [&] { fs::remove(f), dir.file("f", "next"); },
      [&] { fs::remove(f), fs::create_symlink(dir.file("sub/f", "next"), f); },
      [&] {  // rewritten, of the same size, all but in the same moment
        const auto modified = fs::last_write_time(f);
        dir.file("f", "next");
        fs::last_write_time(f, modified + std::chrono::nanoseconds(1));
      }};
  for (const auto& change : changes) {
    SourceFile before = sent("f");
    change();
    before_rename(0, [] { ADD_FAILURE() << "what is seen before is left alone"; });
    EXPECT_EQ(Removal::kChanged, remove(std::move(before))) << &change - changes;
    EXPECT_EQ("next", contents(f)) << &change - changes;
    fs::remove(f);
    before_rename(0, change);
    EXPECT_EQ(Removal::kChanged, remove(sent("f"))) << &change - changes;
    EXPECT_EQ("next", contents(f)) << &change - changes;
    fs::remove(f);
  }
  EXPECT_EQ("sub/f=next ", left());
}

TEST_F(Removing, IsDoneOnceByWhomever) {
  before_rename(0, [this] { fs::remove(f); });
  EXPECT_EQ(Removal::kGone, remove(sent("f")));
  fail_renames(0);
  SourceFile file = sent("f");
  EXPECT_EQ(Removal::kGone, take_away(file, [this](Aside& taken) {
              fs::remove(dir.path(aside));  // also at the last moment
              return taken.remove();
            }));
  EXPECT_EQ(Removal::kDone, remove(sent("f")));
  EXPECT_EQ("", left());
}

TEST_F(Removing, NoticesARewritingThatHidesItself) {
  SourceFile file = sent("f");
  const auto modified = fs::last_write_time(f);
  while (file_stamp(file.fd())->changed_ns == file.stamp().changed_ns) {  // once the clock ticks
    dir.file("f", "next");
    fs::last_write_time(f, modified);
  }
  EXPECT_EQ(Removal::kChanged, remove(std::move(file)));
  EXPECT_EQ("f=next ", left());
}

TEST_F(Removing, ReplacesNoNewcomerWhenItPutsBack) {
  for (const int error : {0, EINVAL}) {  // as if the file system can't promise to replace nothing
    int count = 0;
    on_rename = [&](unsigned) {
      rename_over(f, count++ == 0 ? "next" : "last");
      return error;
    };
    EXPECT_EQ(Removal::kChanged, remove(sent("f"))) << error;
    EXPECT_EQ(aside + "=next f=last ", left()) << error;
    fail_renames(error);
    EXPECT_EQ(aside, give_name_back(at.get(), aside)) << error;
    EXPECT_EQ(Removal::kDone, remove(opened("f"))) << error;  // beside what is in the way
    // under its own name it would go out after the newer one
    EXPECT_EQ(aside, give_name_back(at.get(), aside)) << error;
    fs::remove(dir.path(aside));
  }
}

TEST_F(Removing, FindsRoomForLongNames) {
  before_rename(1, [this] { rename_over(dir.path(long_name), "next"); });
  EXPECT_EQ(Removal::kChanged, remove(sent(long_name)));
  EXPECT_EQ(std::string(20, 'n') + "=next ", left());
  EXPECT_EQ(Removal::kDone, remove(sent(long_name)));
  EXPECT_TRUE(fs::is_empty(dir.root));
  dir.file(".tarnwick-taken~/a", "back"), dir.file(".tarnwick-taken~/b", "stays"),
      dir.file("b", "new");
  const Fd folder(open(dir.path(".tarnwick-taken~").c_str(), O_PATH));
  EXPECT_EQ(1, give_all_back(at.get(), folder.get()));
  EXPECT_EQ(".tarnwick-taken~/b=stays a=back b=new ", left());
  EXPECT_EQ(Removal::kDone, remove(sent(long_name))) << "in a folder that is there";
}

TEST_F(Removing, LeavesWhatCannotBeTakenOrLookedAt) {
  fail_renames(EACCES);
  EXPECT_EQ(Removal::kFailed, remove(sent("f")));
  EXPECT_EQ("f=sent ", left());
  fail_renames(0);
  SourceFile stays = opened("f");
  EXPECT_EQ(Removal::kFailed, take_away(stays, [this](Aside& taken) {
              fs::remove(dir.path(aside)), fs::create_directory(dir.path(aside));
              return taken.remove();
            }));
  EXPECT_TRUE(fs::remove(f)) << "what could not be removed is back";
  SourceFile other({at.get(), "f", dir.file("f")});
  rename_over(f, "next"), other.open();
  EXPECT_EQ(SourceFile::State::kMissing, other.state());
}

TEST_F(Removing, RemovesTheLinkAndNotWhatItLeadsTo) {
  dir.file("f", "sent"), dir.file("sub/other", "next");
  for (const std::string& name : {std::string("l"), long_name}) {
    fs::create_symlink("f", dir.path(name));
    before_rename(
        0, [&] { fs::remove(dir.path(name)), fs::create_symlink("sub/other", dir.path(name)); });
    EXPECT_EQ(Removal::kChanged, remove(opened(name)));
    fail_renames(0);
    EXPECT_EQ("next", contents(dir.path(name)));
    EXPECT_EQ(Removal::kDone, remove(opened(name)));
    EXPECT_EQ("f=sent sub/other=next ", left());
  }
  fs::create_symlink("f", dir.path("l"));
  SourceFile through_link = opened("l");
  fs::remove(f);
  EXPECT_EQ(Removal::kChanged, remove(std::move(through_link))) << "nobody knows what it held";
  EXPECT_TRUE(fs::is_symlink(dir.path("l")));
}

TEST_F(Removing, AsksAgainWhoHoldsTheFileAfterASecond) {
  SourceFile file = sent("f");
  const Fd other(open(f.c_str(), O_WRONLY));
  EXPECT_EQ(1, file.check_open());
  EXPECT_FALSE(file.was_opened_since());
  time_passed = 2;
  EXPECT_EQ(Removal::kOpened, remove(std::move(file)));
  EXPECT_TRUE(dir.exists("f"));
}

struct Trash : Removing {
  Trash() { settings.trash_path = dir.path("trash"); }
  void move(SourceFile file) const { move_to_trash(file, info); }

  const file_info info{};
  const std::string journal = "trash/" + settings.trash_log, name = trash_name(info);
};

TEST_F(Trash, GetsTheSentFileAndALineForEachOne) {
  move(sent("f"));
  move(sent("f", "2"));
  const std::string line = name + " " + f + "\n";
  EXPECT_EQ(fs::perms::none, fs::status(dir.path(journal)).permissions() & fs::perms(0111));
  EXPECT_EQ("trash/" + name.substr(0, 14) + "=2 " + journal + "=" + line + line + " ", left());
  SourceFile changed = sent("f", "1");
  rename_over(f, "next");
  move(std::move(changed));
  before_rename(0, [this] { rename_over(f, "last"); });
  move(sent("f", "1"));
  EXPECT_EQ("last", contents(f));
  EXPECT_EQ(line + line, contents(dir.path(journal)));
}

TEST_F(Trash, WhatCannotGoThereStaysAndAFailureIsToldOnceUntilItIsOver) {
  dir.file("trash/" + name + "/x");  // as little to be replaced as another file system's
  const std::string works = settings.trash_path, fails = dir.file("g");
  for (const std::string& path : {works, fails, fails, works, fails, fails, works}) {
    settings.trash_path = path;
    move(sent("f"));
    EXPECT_EQ("sent", contents(f));
    EXPECT_NE("", contents(dir.path(journal))) << "it is noted first";
  }
  fs::remove(dir.path(journal)), fs::create_directory(dir.path(journal));
  move(sent("f")), move(sent("f"));
  const std::string folder = "warning: can't open the trash folder " + fails + "\n";
  EXPECT_EQ(folder + folder + "warning: can't write the trash journal " + dir.path(journal) + "\n",
            system_log);
}

TEST_F(Trash, JournalLinesAreWholeOrNotThere) {
  signal(SIGXFSZ, SIG_IGN);
  rlimit usual{};
  getrlimit(RLIMIT_FSIZE, &usual);
  dir.file("log", "first\n");
  const rlimit few{10, usual.rlim_max};
  setrlimit(RLIMIT_FSIZE, &few);
  const bool noted = note_in_journal(at.get(), "log", "second");
  setrlimit(RLIMIT_FSIZE, &usual);
  EXPECT_FALSE(noted);
  EXPECT_TRUE(note_in_journal(at.get(), "log", "third"));
  EXPECT_EQ("first\nthird\n", contents(dir.path("log")));
}

TEST_F(Trash, JournalIsARegularFileAndNoStrangersLink) {
  ASSERT_EQ(0, mkfifo(dir.path("pipe").c_str(), 0600));
  EXPECT_FALSE(note_in_journal(at.get(), "pipe", "x"));
  const Fd reader(open(dir.path("pipe").c_str(), O_RDONLY | O_NONBLOCK));
  EXPECT_FALSE(note_in_journal(at.get(), "pipe", "x"));
  char byte = 0;
  EXPECT_EQ(0, read(reader.get(), &byte, 1));
  fs::create_symlink(dir.file("victim", ""), dir.path("link"));
  if (!give_away(dir.path("link"))) return;  // we are not root
  EXPECT_FALSE(note_in_journal(at.get(), "link", "x"));
  EXPECT_EQ("", contents(dir.path("victim")));
}
