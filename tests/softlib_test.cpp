#include <fcntl.h>
#include <sys/stat.h>

#include <clocale>

#include "ground/owners.h"
#include "softlib/escape.h"
#include "softlib/file_system.h"
#include "softlib/keyboard.h"
#include "softlib/log.h"
#include "softlib/numbers.h"
#include "softlib/path.h"
#include "softlib/replace_file.h"
#include "tests/support.h"

TEST(FileSystem, SplitsPathsAndMakesEveryMissingFolderButOneForALog) {
  std::string got, name;
  for (std::string path : {"/v\\a.b.c", "a\\b/c", "d.d/f", "d/", "./.p", "n."}) {
    got += get_file_ext(path) + "," + get_file_name_noext(path) + ",";
    prg_get_name_dir(path, name, path);  // `path` itself becomes the folder
    got += name + "," + path + "; ";
  }
  EXPECT_EQ("c,a.b,a.b.c,/v; ,c,c,a\\b; ,f,f,d.d; ,,,d; p,,.p,.; ,n,n.,; ", got);
  const TempDir dir;
  std::string deep = dir.root + "\\a//b\\", empty, blocked = dir.file("sub/.x") + "/x";
  EXPECT_TRUE(MakeDir(deep));
  EXPECT_EQ(dir.root + "/a//b/", deep);
  EXPECT_TRUE(dir_is_empty(dir.root, "a/b"));
  EXPECT_TRUE(MakeDir(empty));
  EXPECT_FALSE(MakeDir(blocked));
  EXPECT_FALSE(dir_is_empty(dir.root, "sub"));
  fs::create_directory_symlink("a", dir.path("link"));
  std::string planted = dir.path("link/c");
  const bool is_strangers = give_away(dir.path("link"));
  EXPECT_NE(is_strangers, MakeDir(planted));
  EXPECT_NE(is_strangers, dir.exists("a/c"));
  EXPECT_TRUE(LogDir("x"));
  EXPECT_TRUE(LogDir(dir.path("d/x")));
  EXPECT_FALSE(LogDir(dir.path("e/f/x")));
}

TEST(Escape, LeavesNothingOfANameThatATerminalWouldObey) {
  const std::string name = "a \\Имя\x1b[2J\r\n\x7f|\xc2\x85|\xff|\xd0";
  ASSERT_NE(nullptr, std::setlocale(LC_CTYPE, "C.UTF-8"));
  EXPECT_EQ("a \\Имя\\x1B[2J\\x0D\\x0A\\x7F|\\xC2\\x85|\\xFF|\\xD0", escape_unprintable(name));
  std::setlocale(LC_CTYPE, "C");
  EXPECT_EQ("\\xD0\\x98 a", escape_unprintable("И a"));
  EXPECT_EQ("a \\Имя\\x1B[2J\\x0D\\x0A\\x7F|\xc2\x85|\xff|\xd0", escape_controls(name));
}

TEST(Numbers, HaveADecimalPointInEveryLocale) {
  const TempDir dir;
  setenv("LOCPATH", dir.root.c_str(), 1);
  const std::string compile = "localedef -i ru_RU -f UTF-8 '" + dir.path("ru_RU.UTF-8") + "'";
  if (std::system(compile.c_str()) != 0) GTEST_SKIP() << "needs localedef and its ru_RU";
  ASSERT_NE(nullptr, std::setlocale(LC_ALL, "ru_RU.UTF-8"));
  EXPECT_EQ(1.5, std::strtod("1,5", nullptr));  // so it is in force
  EXPECT_EQ(0.5, to_double(" +0.5"));
  EXPECT_EQ(9, to_double("9,5"));
  EXPECT_EQ(-24, to_double("-0x1.8p4 Mbit"));
  std::setlocale(LC_ALL, "C");
}

TEST(Numbers, BytesAreDigitsWithAtMostAUnit) {
  const std::pair<const char*, std::uint64_t> sizes[] = {
      {"0", 0}, {"104K", 106'496}, {"16G", 17'179'869'184}, {"18446744073709551615", ~0UL}};
  for (const auto& [text, size] : sizes) EXPECT_EQ(size, to_bytes(text)) << text;
  for (const char* none : {"", "K", "-1", "+1", " 1", "1 ", "1k", "1KB", "1.5K", "0x10",
                           "18446744073709551616", "17179869184G"}) {
    EXPECT_FALSE(to_bytes(none)) << none;
  }
}

TEST(Keyboard, OnlyEscapeOrTheEndOfInputIsTakenForEscape) {
  int ends[2];
  ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
  const Fd kept(dup(STDIN_FILENO)), reader(ends[0]);
  Fd writer(ends[1]);
  ASSERT_EQ(STDIN_FILENO, dup2(reader.get(), STDIN_FILENO));
  EXPECT_FALSE(kbhit());
  EXPECT_EQ(3, write(writer.get(), "q\x1bq", 3));
  EXPECT_FALSE(escape_was_pressed());
  EXPECT_TRUE(escape_was_pressed());
  EXPECT_FALSE(escape_was_pressed());
  EXPECT_FALSE(kbhit());
  EXPECT_EQ('q', getch());
  writer = Fd();
  EXPECT_TRUE(escape_was_pressed());
  std::clearerr(stdin);
  dup2(kept.get(), STDIN_FILENO);
}

TEST(Log, GoesToPipesButNotThroughAStrangersLinkAndWarnsOnceWhenItFails) {
  const TempDir dir;
  system_log.clear();
  const std::string log = dir.path("log"), pipe = dir.path("pipe");
  ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
  const Fd reader(open(pipe.c_str(), O_RDWR | O_CLOEXEC));
  fs::create_symlink(pipe, log);
  write_log(log, "a", false);
  char text[9] = "";
  EXPECT_EQ(2, read(reader.get(), text, sizeof text));
  EXPECT_STREQ("a\n", text);
  if (!give_away(log)) return;  // we are not root
  fs::remove(pipe), dir.file("pipe");
  write_log(log, "b", false), write_log(log, "c", false);
  EXPECT_EQ("x", contents(pipe));
  EXPECT_EQ("warning: can't write the log " + log + "\n", system_log);
  fs::remove(log);
  ASSERT_EQ(0, mkfifo(log.c_str(), 0600));
  ASSERT_TRUE(give_away(log));
  write_log(log, "d", false);  // would wait for a reader for ever
}

TEST(ReplaceFile, ShowsTheOldTextOrTheNewAndLeavesWhatIsNoFileAlone) {
  const TempDir dir;
  const std::string victim = dir.file("victim"), path = dir.path("state");
  fs::create_symlink(victim, path + ".tmp");
  for (const std::string text : {"first", "second"}) {
    EXPECT_EQ("", replace_file(path, text));
    EXPECT_EQ(text, contents(path));
  }
  EXPECT_EQ("x", contents(victim));
  EXPECT_FALSE(dir.exists("state.tmp"));
  fs::create_symlink(victim, dir.path("link"));
  for (const char* other : {"link", "", "/dev/null"}) {
    EXPECT_EQ("not a regular file", replace_file(*other == '/' ? other : dir.path(other), "y"));
  }
  EXPECT_EQ("x", contents(victim));
  EXPECT_EQ("No such file or directory", replace_file(dir.path("none/x"), "y"));
}
