#include "receiver/store.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

struct StoreTest : testing::Test {
  ~StoreTest() override { fs::remove_all(root), fs::remove_all(far); }
  static fs::path folder(std::string path) { return mkdtemp(path.data()); }
  static std::string contents(const fs::path& path) {
    return {std::istreambuf_iterator<char>(std::ifstream(path).rdbuf()), {}};
  }
  static auto files(const fs::path& in) { return std::distance(fs::directory_iterator(in), {}); }
  Delivery deliver(const std::vector<std::string>& folders, const std::string& name) const {
    Store store(options);
    const Fd part = store.open_part(7);
    EXPECT_EQ(3, pwrite(part.get(), "new", 3, 0)) << store.error();
    Delivery delivery = store.deliver(7, part.get(), folders, name);
    EXPECT_EQ(delivery.done, store.parts_left().empty() && delivery.error.empty());
    return delivery;
  }
  const fs::path root = folder(fs::temp_directory_path() / "store_XXXXXX");
  const fs::path far = folder("/dev/shm/store_XXXXXX");
  StoreOptions options{root / "in", "", "", true, false, 0446, 0};
};

TEST_F(StoreTest, ReplacesOrNumbersAndSetsPermissions) {
  const mode_t mask = umask(027);
  EXPECT_TRUE(deliver({"a", "b"}, "f").done && !truncate((root / "in/a/b/f").c_str(), 0));
  EXPECT_EQ(root / "in/a/b/f", deliver({"a", "b"}, "f").path);
  umask(mask);
  EXPECT_EQ("new", contents(root / "in/a/b/f"));
  for (const auto& [name, mode] : {std::pair{"a/b/f", 0440}, {"a", 0750}, {".tarnwick", 0700}})
    EXPECT_EQ(fs::perms(mode), fs::status(root / "in" / name).permissions());
  options.keep_existing = true;
  for (const char* name : {"f.txt", "f (1).txt", "f (2).txt", "f (3).txt", "f (4).txt"})
    EXPECT_EQ(root / "in" / name, deliver({}, "f.txt").path);
  EXPECT_TRUE(deliver({}, std::string(255, 'n')).done && deliver({}, std::string(255, 'n')).done);
}

TEST_F(StoreTest, WritesNothingOutside) {
  fs::create_directories(root / "out/sub"), fs::create_directories(root / "in/folder");
  fs::create_directory_symlink("../out", root / "in/link");
  fs::create_symlink("../out/f", root / "in/f");
  using Folders = std::vector<std::string>;
  for (const Folders& bad : {Folders(2100, "d"),
                             {"link"},
                             {"link", "sub"},
                             {"link", "new"},
                             {"f"},
                             {".."},
                             {"a", "..", "b"},
                             {"link/sub"},
                             {""},
                             {std::string(256, 'x')}})
    EXPECT_FALSE(deliver(bad, "g").done) << bad[0];
  for (const char* bad : {"folder", "..", ".", "", "folder/b", "../out/g"})
    EXPECT_FALSE(deliver({}, bad).done) << bad;
  EXPECT_TRUE(deliver({}, "f").done && fs::is_regular_file(fs::symlink_status(root / "in/f")));
  EXPECT_EQ(1, files(root / "out") + files(root / "out/sub"));
}

TEST_F(StoreTest, KeepsJournalsAndUnfinishedFilesApart) {
  Store store(options);
  std::ofstream foreign(root / "in/.tarnwick/parts/00000000000000AB");
  for (const std::uint64_t id : {UINT64_MAX, std::uint64_t{1}}) {
    EXPECT_EQ(2, write(store.open_part(id).get(), "ab", 2));
    const Delivery kept = store.keep_incomplete(id, std::string(255, 'n'), "1-3\n");
    EXPECT_EQ("ab1-3\n", contents(kept.path) + contents(kept.path + ".missing.txt")) << kept.error;
    const Fd part = store.open_part(id);
    EXPECT_EQ(std::vector<std::uint64_t>{id}, store.parts_left());
    EXPECT_TRUE(store.deliver_journal(id, part.get(), INT64_MIN, "j").done);
  }
  EXPECT_EQ(2, files(root / "in/.tarnwick/journals"));
  options.reserve = UINT64_MAX;
  EXPECT_TRUE(store.has_room(0) && !store.has_room(UINT64_MAX) && !Store(options).has_room(0));
}

TEST_F(StoreTest, CopiesToAnotherFileSystemAndTidiesUpWhereItCanNot) {
  struct stat here {
  }, there{};
  if (stat(root.c_str(), &here) + stat(far.c_str(), &there) != 0 || here.st_dev == there.st_dev)
    GTEST_SKIP() << "/dev/shm is on the file system of the temporary folder";
  options.incomplete = far;
  Store store(options);
  EXPECT_EQ(3, pwrite(store.open_part(1).get(), "end", 3, 1 << 24));
  signal(SIGXFSZ, SIG_IGN);
  for (const rlim_t most : {rlim_t{1} << 20, RLIM_INFINITY}) {
    const rlimit limit{most, RLIM_INFINITY};
    EXPECT_EQ(0, setrlimit(RLIMIT_FSIZE, &limit));
    const Delivery kept = store.keep_incomplete(1, "f", "note");
    EXPECT_EQ(most == RLIM_INFINITY ? 2 : 0, files(far));
    EXPECT_EQ(kept.done ? 0U : 1U, store.parts_left().size());
    EXPECT_EQ(kept.done ? std::string(1 << 24, '\0') + "end" : "", contents(kept.path));
    EXPECT_TRUE(!kept.done || (!stat(kept.path.c_str(), &there) && there.st_blocks < 9999));
  }
}
