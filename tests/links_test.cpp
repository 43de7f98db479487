// Which links are followed. Only root can make the links of strangers that it needs.
#include "softlib/links.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstring>

#include "tests/support.h"

constexpr uid_t kStranger = 54321;

/// A folder, a file and links, those of a stranger beginning with "their".
struct Links : testing::Test {
  void SetUp() override {
    if (geteuid() != 0) return;  // only root gives files away
    dir.file("ours/f", "ours"), dir.file("theirs/their_f", "theirs");
    EXPECT_EQ(0, chown(dir.path("theirs").c_str(), kStranger, 0));
    EXPECT_EQ(0, chown(dir.path("theirs/their_f").c_str(), kStranger, 0));
    for (const auto& [name, text] : {std::pair("a", "ours/f"),
                                     {"b", "a"},
                                     {"their_a", "ours/f"},
                                     {"their_b", "a"},
                                     {"their_c", "theirs/their_f"},
                                     {"c", "their_a"},
                                     {"d", "their_c"},
                                     {"e", "their_d/f"},
                                     {"their_d", "ours"},
                                     {"their_e", "theirs/"},
                                     {"new", "made"},
                                     {"their_new", "made"},
                                     {"loop", "loop"},
                                     {"their_g", "their_b"},
                                     {"file", "ours/f/"}}) {
      const std::string path = dir.path(name);
      EXPECT_EQ(0, symlink(text, path.c_str()));
      if (name[0] != 't') continue;
      EXPECT_EQ(0, lchown(path.c_str(), kStranger, 0));
    }
  }
  /// What opening the entry brings: "open", "refused" or the error.
  std::string open(const std::string& name, int flags = O_RDONLY) const {
    const Fd folder(::open(dir.root.c_str(), O_PATH));
    const Opened below = open_below(folder.get(), name.c_str(), flags, 0600);
    const Opened whole = open_path(dir.path(name), flags, 0600);
    EXPECT_EQ(below.error, whole.error) << name;
    return below ? "open" : below.refused ? "refused" : std::strerror(below.error);
  }
  TempDir dir;
};

TEST_F(Links, AreFollowedIfRootsOurOwnOrOfTheOwnerOfWhatTheyLeadTo) {
  if (geteuid() != 0) GTEST_SKIP() << "only root gives files away";
  for (const char* name : {"a", "b", "d", "their_c"}) EXPECT_EQ("open", open(name)) << name;
  for (const char* name : {"their_a", "their_b", "c", "e", "their_d", "their_g"})
    EXPECT_EQ("refused", open(name)) << name;
  for (const char* name : {"their_d", "their_a"}) EXPECT_EQ("refused", open(name, O_PATH)) << name;
  fs::permissions(dir.root, fs::perms(0755));
  ASSERT_EQ(0, seteuid(kStranger));
  EXPECT_EQ("open", open("their_a"));  // our own now
  ASSERT_EQ(0, seteuid(0));
  EXPECT_EQ("open", open("their_e", O_RDONLY | O_DIRECTORY));
  EXPECT_EQ("refused", open("their_d", O_RDONLY | O_DIRECTORY));
  EXPECT_EQ("Not a directory", open("a", O_RDONLY | O_DIRECTORY));
  EXPECT_EQ("Not a directory", open("file"));
  EXPECT_EQ("Too many levels of symbolic links", open("loop"));
  EXPECT_EQ("No such file or directory", open("their_new"));
  EXPECT_EQ("refused", open("their_new", O_WRONLY | O_CREAT));
  EXPECT_FALSE(dir.exists("made"));
  EXPECT_EQ("open", open("new", O_WRONLY | O_CREAT));
  EXPECT_TRUE(dir.exists("made"));
}

TEST_F(Links, LeadToWhatADescriptorOfOursHolds) {
  int ends[2];
  ASSERT_EQ(0, pipe(ends));
  const Fd reader(ends[0]), writer(ends[1]);
  const std::string text = "/proc/self/fd/" + std::to_string(ends[1]);
  ASSERT_EQ(0, symlink(text.c_str(), dir.path("pipe").c_str()));
  struct stat self {};
  ASSERT_EQ(0, lstat("/proc/self", &self));
  const Opened file = open_path(dir.path("pipe"), O_WRONLY | O_CREAT, 0600);
  if (self.st_uid != 0 && geteuid() != 0) {  // in a user namespace root's links are a stranger's
    EXPECT_TRUE(file.refused);
    return;
  }
  ASSERT_EQ(0, file.error);
  EXPECT_EQ(1, write(file.fd.get(), "x", 1));
  if (lchown(dir.path("pipe").c_str(), kStranger, 0) != 0) return;  // only root gives links away
  EXPECT_TRUE(open_path(dir.path("pipe"), O_WRONLY).refused);
}
