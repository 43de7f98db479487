#include "receiver/deliver/store.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "receiver/deliver/pruning.h"
#include "receiver/deliver/records.h"

namespace fs = std::filesystem;

struct StoreTest : testing::Test {
  void TearDown() override { fs::remove_all(root), fs::remove_all(far); }
  using Bytes = std::istreambuf_iterator<char>;
  static std::string contents(const fs::path& p) { return {Bytes(std::ifstream(p).rdbuf()), {}}; }
  static auto files(const fs::path& in) { return std::distance(fs::directory_iterator(in), {}); }
  Delivery deliver(const std::vector<std::string>& folders, const std::string& name,
                   bool replace = true) const {
    Store store(options);
    EXPECT_EQ(3, pwrite(store.parts().open(kKey), "new", 3, 0)) << store.error();
    Delivery delivery = store.deliver(kKey, folders, name, replace);
    EXPECT_EQ(delivery.done, store.parts().left().empty() && delivery.error.empty());
    return delivery;
  }
  static constexpr TransferKey kKey{7, 0x7F000001, 9};
  std::string near_ = fs::temp_directory_path() / "store_XXXXXX", far_ = "/dev/shm/store_XXXXXX";
  const fs::path root = mkdtemp(near_.data()), far = mkdtemp(far_.data());
  StoreOptions options{root / "in", "", "", true, false, 0446, 0};
};

TEST_F(StoreTest, ReplacesOrNumbersAndSetsPermissions) {
  umask(027);
  EXPECT_TRUE(deliver({"a", "b"}, "f").done);
  fs::permissions(root / "in/a/b/f", fs::perms(0600));
  fs::resize_file(root / "in/a/b/f", 0);
  EXPECT_EQ("new", contents(deliver({"a", "b"}, "f").path));
  for (const auto& [name, mode] : {std::pair{"a/b/f", 0440}, {"a", 0750}, {".tarnwick", 0700}})
    EXPECT_EQ(fs::perms(mode), fs::status(root / "in" / name).permissions());
  for (const char* name : {"f.txt", "f (1).txt", "f (2).txt", "f (3).txt", "f (4).txt"}) {
    EXPECT_EQ(root / "in" / name, deliver({}, name, false).path);
    EXPECT_TRUE(deliver({}, "f.txt", false).taken);
  }
  EXPECT_EQ("f (5).txt", Store(options).free_name({}, "f.txt"));
  EXPECT_EQ(255U, Store(options).free_name({}, std::string(255, 'n')).size());
  EXPECT_TRUE(Store(options).has_file({"a", "b"}, "f"));
  EXPECT_FALSE(Store(options).has_file({"a"}, "b"));
}

TEST_F(StoreTest, WritesNothingOutside) {
  for (const char* made : {"out/sub", "in/folder"}) fs::create_directories(root / made);
  fs::create_symlink("../out", root / "in/link"), fs::create_symlink("folder", root / "in/f");
  EXPECT_FALSE(deliver(std::vector<std::string>(2100, "d"), "g").done);
  for (const std::string bad : {"link", "f", "..", "link/sub", ""}) {
    EXPECT_FALSE(deliver({bad}, "g").done) << bad;
    EXPECT_FALSE(deliver({bad, "sub"}, "g").done) << bad;
  }
  for (const char* bad : {"folder", "..", ".", "", "folder/b", "../out/g"})
    EXPECT_FALSE(deliver({}, bad).done) << bad;
  EXPECT_TRUE(deliver({}, "f").done);
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(root / "in/f")));
  EXPECT_EQ(1, files(root / "out") + files(root / "out/sub"));
}

TEST_F(StoreTest, KeepsJournalsAndUnfinishedFilesApart) {
  Store store(options);
  EXPECT_NE("", Store(options).error()) << "a second one";
  std::ofstream foreign(root / "in/.tarnwick/parts/00000000000000ab");
  for (const TransferKey id : {TransferKey{UINT64_MAX, ~0U, 65535}, {1, 1, 2}, {1, 2, 1}}) {
    EXPECT_EQ(2, write(store.parts().open(id), "ab", 2));
    EXPECT_EQ(std::vector<TransferKey>{id}, store.parts().left());
    const Delivery kept = store.keep_incomplete(id, std::string(255, 'n'), "1-3");
    EXPECT_EQ("ab1-3", contents(kept.path) + contents(kept.path + ".missing.txt")) << kept.error;
    EXPECT_LE(0, store.parts().open(id));
    EXPECT_TRUE(store.deliver_journal(id, INT64_MIN, "j").done);
  }
  EXPECT_EQ(3, files(root / "in/.tarnwick/journals"));
  options.reserve = UINT64_MAX;
  EXPECT_TRUE(store.has_room(0));
  EXPECT_FALSE(store.has_room(UINT64_MAX));
  EXPECT_FALSE(Store(options).has_room(0));
}

TEST_F(StoreTest, CopiesToAnotherFileSystemAndTidiesUpWhereItCanNot) {
  options.incomplete = far;
  Store store(options);
  EXPECT_EQ(3, pwrite(store.parts().open(kKey), "end", 3, 1 << 24));
  if (link((root / "in/.tarnwick/parts/0000000000000007-7F000001-0009").c_str(),
           (far / "x").c_str()) == 0)
    GTEST_SKIP() << "/dev/shm is on the file system of the temporary folder";
  signal(SIGXFSZ, SIG_IGN);
  for (const bool full : {true, false}) {
    const rlimit limit{full ? 1 << 20 : RLIM_INFINITY, RLIM_INFINITY};
    EXPECT_EQ(0, setrlimit(RLIMIT_FSIZE, &limit));
    const Delivery kept = store.keep_incomplete(kKey, "f", "note");
    EXPECT_EQ(full ? "" : std::string(1 << 24, '\0') + "end", contents(kept.path));
    EXPECT_EQ((full ? 0 : 2), files(far)) << kept.error;
    EXPECT_EQ(full, store.parts().left().size()) << kept.error;
  }
}

TEST_F(StoreTest, RecordsWaitForTheLedgerTheNewestForLongest) {
  const Store store(options);
  std::string error;
  const auto ledger = Ledger::open(root / "l", error);
  int ends[2];
  ASSERT_EQ(0, pipe2(ends, O_CLOEXEC | O_NONBLOCK));
  const Fd from(ends[0]), to(ends[1]);
  Outlet outlet(to.get());
  Events events(true, outlet, outlet);
  constexpr std::size_t kMost = 1500;  // more than are written at once
  Records records(*ledger, events, kMost);
  const auto record = [](std::uint64_t id, Outcome outcome, std::uint32_t crc = 5) {
    TransferRecord r;
    r.key.id = id, r.outcome = outcome, r.path_crc = crc;
    r.asked_for = "a", r.lies_at = "p" + std::to_string(id);
    return r;
  };
  const auto warnings = [&] {
    std::string text(9999, '\0');
    const ssize_t got = read(from.get(), text.data(), text.size());
    return std::count(text.data(), text.data() + std::max<ssize_t>(got, 0), '\n');
  };
  sqlite3* other = nullptr;
  sqlite3_open((root / "l").c_str(), &other);
  const auto lock = [&](const char* sql) {
    ASSERT_EQ(SQLITE_OK, sqlite3_exec(other, sql, nullptr, nullptr, nullptr));
  };
  lock("BEGIN IMMEDIATE");
  EXPECT_FALSE(records.save(record(1, Outcome::kReceiving)));
  EXPECT_EQ(0U, records.waiting()) << "what is under way is saved again anyway";
  EXPECT_FALSE(records.save(record(1, Outcome::kIncomplete)));
  EXPECT_FALSE(records.save(record(1, Outcome::kDelivered)));
  EXPECT_FALSE(records.save(record(1, Outcome::kIncomplete, 6)));
  EXPECT_EQ(2U, records.waiting()) << "the later of a transfer counts";
  EXPECT_EQ(1, warnings()) << "once";
  EXPECT_TRUE(records.is_behind({1}));
  EXPECT_EQ(Outcome::kDelivered, records.find(record(1, {}))->outcome);
  EXPECT_EQ("p1", records.place_of("a", {0, 5}));
  EXPECT_EQ(5U, records.owner_of("p1")->path_crc);
  EXPECT_FALSE(records.save_all({record(3, Outcome::kReceiving), record(4, Outcome::kReceiving)}));
  lock("ROLLBACK");
  EXPECT_FALSE(records.save(record(2, Outcome::kDelivered))) << "in their order";
  records.catch_up();
  EXPECT_EQ(0U, records.waiting());
  EXPECT_FALSE(records.is_behind({1}));
  EXPECT_EQ(3U, ledger->all({}).size());
  EXPECT_EQ("p2", records.place_of("a", {0, 5}));
  lock("BEGIN IMMEDIATE");
  for (std::uint64_t id = 10; id < 12 + kMost; ++id)
    (void)records.save(record(id, Outcome::kDelivered));
  EXPECT_EQ(2, warnings()) << "it fails again, and the oldest are lost";
  EXPECT_EQ(2U, records.lost());
  EXPECT_FALSE(records.were_certain());
  EXPECT_FALSE(records.is_behind({11}));
  EXPECT_TRUE(records.is_behind({12}));
  sqlite3_close(other);
  records.catch_up();
  EXPECT_EQ(3 + kMost, ledger->all({}).size());
}

TEST_F(StoreTest, PrunesItsOwnOldFilesOnly) {
  const Store store(options);
  const fs::path kept = root / "in/.tarnwick/incomplete";
  const std::string key = key_text(kKey), name = key + "-f";
  for (const std::string& each :
       {name, name + ".missing.txt", "1700000000-" + key + "-j", key, key + "x-f", "x-" + name,
        std::string("report.txt"), name + "new"})
    std::ofstream(kept / each) << "x";
  fs::create_directory(kept / (name + " folder")), fs::create_symlink("x", kept / (name + " link"));
  for (const auto& each : fs::directory_iterator(kept)) {
    const timespec old[2] = {{1000, 0}, {1000, 0}};
    if (each.path().filename() != name + "new")
      utimensat(AT_FDCWD, each.path().c_str(), old, AT_SYMLINK_NOFOLLOW);
  }
  EXPECT_EQ(0U, prune_kept(store.incomplete_folder(), 1000));
  EXPECT_EQ(3U, prune_kept(store.incomplete_folder(), 1001));
  EXPECT_EQ(7, files(kept));
  std::string error;
  const auto ledger = Ledger::open(root / "l", error);
  TransferRecord record;
  for (std::uint64_t id = 1; id <= 500; ++id) {
    record.key.id = id, record.outcome = Outcome::kDelivered;
    EXPECT_EQ("", ledger->save(record));
  }
  std::ofstream(kept / name) << "x";
  Pruning none(*ledger, store.journals_folder(), store.incomplete_folder(), 0);
  none.tick({0, 9e9});
  EXPECT_EQ(500U, ledger->all({}).size());
  Pruning pruning(*ledger, store.journals_folder(), store.incomplete_folder(), 60);
  for (int call = 0; call < 4; ++call) pruning.tick({1, 9e9});  // by and by
  EXPECT_EQ(0U, ledger->all({}).size());
  EXPECT_FALSE(fs::exists(kept / name));
}
