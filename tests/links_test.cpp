// Which links are followed. Only root can make the links of strangers that it needs.
#include "softlib/links.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstring>
#include <sstream>

#include "tests/support.h"

/// A folder, a file and links, those of a stranger beginning with "their".
struct Links : testing::Test {
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "only root gives files away";
    dir.file("ours/f", "ours"), dir.file("theirs/their_f", "theirs");
    std::istringstream links(
        "a ours/f  b a  c their_a  d their_c  e their_d/f  new made  loop loop  file ours/f/ "
        "their_a ours/f  their_b a  their_c theirs/their_f  their_d ours  their_e theirs/ "
        "their_new made  their_g their_b");
    for (std::string name, text; links >> name >> text;) {
      fs::create_symlink(text, dir.path(name));
      if (name[0] == 't') give_away(dir.path(name));
    }
    give_away(dir.path("theirs")), give_away(dir.path("theirs/their_f"));
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
  constexpr int kFolder = O_RDONLY | O_DIRECTORY, kNew = O_WRONLY | O_CREAT;
  const struct {
    const char* wanted;
    int flags;
    std::vector<const char*> names;
  } cases[] = {{"open", O_RDONLY, {"a", "b", "d", "their_c"}},
               {"refused", O_RDONLY, {"their_a", "their_b", "c", "e", "their_d", "their_g"}},
               {"refused", O_PATH, {"their_a", "their_d"}},
               {"refused", kFolder, {"their_d"}},
               {"open", kFolder, {"their_e"}},
               {"Not a directory", kFolder, {"a", "file"}},
               {"Too many levels of symbolic links", O_RDONLY, {"loop"}},
               {"No such file or directory", O_RDONLY, {"their_new"}},
               {"refused", kNew, {"their_new"}}};
  for (const auto& [wanted, flags, names] : cases) {
    for (const char* name : names) EXPECT_EQ(wanted, open(name, flags)) << name << " " << flags;
  }
  EXPECT_FALSE(dir.exists("made"));
  EXPECT_EQ("open", open("new", kNew));
  EXPECT_TRUE(dir.exists("made"));
  fs::permissions(dir.root, fs::perms(0755));
  ASSERT_EQ(0, seteuid(kStranger));
  EXPECT_EQ("open", open("their_a")) << "our own now";
  ASSERT_EQ(0, seteuid(0));
}

TEST(OpenPath, LeadsToWhatADescriptorOfOursHolds) {
  const TempDir dir;
  int ends[2];
  ASSERT_EQ(0, pipe(ends));
  const Fd reader(ends[0]), writer(ends[1]);
  fs::create_symlink("/proc/self/fd/" + std::to_string(ends[1]), dir.path("pipe"));
  struct stat self {};
  ASSERT_EQ(0, lstat("/proc/self", &self));
  const Opened file = open_path(dir.path("pipe"), O_WRONLY | O_CREAT, 0600);
  if (self.st_uid != 0 && geteuid() != 0)
    GTEST_SKIP() << "in a user namespace root's links are a stranger's";
  ASSERT_EQ(0, file.error);
  EXPECT_EQ(1, write(file.fd.get(), "x", 1));
  if (!give_away(dir.path("pipe"))) return;  // we are not root
  EXPECT_TRUE(open_path(dir.path("pipe"), O_WRONLY).refused);
}
