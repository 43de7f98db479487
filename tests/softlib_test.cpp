#include "softlib/file_system.h"
#include "softlib/log.h"
#include "softlib/path.h"
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
  EXPECT_TRUE(MakeDir(deep) && deep == dir.root + "/a//b/" && dir_is_empty(dir.root, "a/b"));
  EXPECT_FALSE(!MakeDir(empty) || MakeDir(blocked) || dir_is_empty(dir.root, "sub"));
  EXPECT_TRUE(LogDir("x") && LogDir(dir.path("d/x")) && !LogDir(dir.path("e/f/x")));
}
