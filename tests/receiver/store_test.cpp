#include "receiver/store.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

struct StoreTest : testing::Test {
  void TearDown() override { fs::remove_all(root), fs::remove_all(far); }
  using Bytes = std::istreambuf_iterator<char>;
  static std::string contents(const fs::path& p) { return {Bytes(std::ifstream(p).rdbuf()), {}}; }
  static auto files(const fs::path& in) { return std::distance(fs::directory_iterator(in), {}); }
  Delivery deliver(const std::vector<std::string>& folders, const std::string& name) const {
    Store store(options);
    const Fd part = store.open_part(7);
    EXPECT_EQ(3, pwrite(part.get(), "new", 3, 0)) << store.error();
    Delivery delivery = store.deliver(7, part.get(), folders, name);
    EXPECT_EQ(delivery.done, store.parts_left().empty() && delivery.error.empty());
    return delivery;
  }
  std::string near_ = fs::temp_directory_path() / "store_XXXXXX", far_ = "/dev/shm/store_XXXXXX";
  const fs::path root = mkdtemp(near_.data()), far = mkdtemp(far_.data());
  StoreOptions options{root / "in", "", "", true, false, 0446, 0};
};

TEST_F(StoreTest, ReplacesOrNumbersAndSetsPermissions) {
  umask(027);
  EXPECT_TRUE(deliver({"a", "b"}, "f").done && !truncate((root / "in/a/b/f").c_str(), 0));
  EXPECT_EQ("new", contents(deliver({"a", "b"}, "f").path));
  for (const auto& [name, mode] : {std::pair{"a/b/f", 0440}, {"a", 0750}, {".tarnwick", 0700}})
    EXPECT_EQ(fs::perms(mode), fs::status(root / "in" / name).permissions());
  options.keep_existing = true;
  for (const char* name : {"f.txt", "f (1).txt", "f (2).txt", "f (3).txt", "f (4).txt"})
    EXPECT_EQ(root / "in" / name, deliver({}, "f.txt").path);
  EXPECT_TRUE(deliver({}, std::string(255, 'n')).done && deliver({}, std::string(255, 'n')).done);
}

TEST_F(StoreTest, WritesNothingOutside) {
  for (const char* made : {"out/sub", "in/folder"}) fs::create_directories(root / made);
  fs::create_symlink("../out", root / "in/link"), fs::create_symlink("folder", root / "in/f");
  EXPECT_FALSE(deliver(std::vector<std::string>(2100, "d"), "g").done);
  for (const std::string bad : {"link", "f", "..", "link/sub", ""})
    EXPECT_FALSE(deliver({bad}, "g").done || deliver({bad, "sub"}, "g").done) << bad;
  for (const char* bad : {"folder", "..", ".", "", "folder/b", "../out/g"})
    EXPECT_FALSE(deliver({}, bad).done) << bad;
  EXPECT_TRUE(deliver({}, "f").done && fs::is_regular_file(fs::symlink_status(root / "in/f")));
  EXPECT_EQ(1, files(root / "out") + files(root / "out/sub"));
}

TEST_F(StoreTest, KeepsJournalsAndUnfinishedFilesApart) {
  Store store(options);
  EXPECT_NE("", Store(options).error()) << "a second one";
  std::ofstream foreign(root / "in/.tarnwick/parts/00000000000000ab");
  for (const std::uint64_t id : {UINT64_MAX, std::uint64_t{1}}) {
    EXPECT_EQ(2, write(store.open_part(id).get(), "ab", 2));
    EXPECT_EQ(std::vector<std::uint64_t>{id}, store.parts_left());
    const Delivery kept = store.keep_incomplete(id, std::string(255, 'n'), "1-3");
    EXPECT_EQ("ab1-3", contents(kept.path) + contents(kept.path + ".missing.txt")) << kept.error;
    EXPECT_TRUE(store.deliver_journal(id, store.open_part(id).get(), INT64_MIN, "j").done);
  }
  EXPECT_EQ(2, files(root / "in/.tarnwick/journals"));
  options.reserve = UINT64_MAX;
  EXPECT_TRUE(store.has_room(0) && !store.has_room(UINT64_MAX) && !Store(options).has_room(0));
}

TEST_F(StoreTest, CopiesToAnotherFileSystemAndTidiesUpWhereItCanNot) {
  options.incomplete = far;
  Store store(options);
  EXPECT_EQ(3, pwrite(store.open_part(1).get(), "end", 3, 1 << 24));
  if (link((root / "in/.tarnwick/parts/0000000000000001").c_str(), (far / "x").c_str()) == 0)
    GTEST_SKIP() << "/dev/shm is on the file system of the temporary folder";
  signal(SIGXFSZ, SIG_IGN);
  for (const bool full : {true, false}) {
    const rlimit limit{full ? 1 << 20 : RLIM_INFINITY, RLIM_INFINITY};
    EXPECT_EQ(0, setrlimit(RLIMIT_FSIZE, &limit));
    const Delivery kept = store.keep_incomplete(1, "f", "note");
    EXPECT_EQ(full ? "" : std::string(1 << 24, '\0') + "end", contents(kept.path));
    EXPECT_TRUE(files(far) == (full ? 0 : 2) && store.parts_left().size() == full) << kept.error;
  }
}
