#include "receiver/deliver/store.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "receiver/deliver/pruning.h"
#include "receiver/deliver/records.h"
#include "tests/receiver/folder.h"

namespace {

struct StoreTest : InFolder {
  ~StoreTest() override { fs::remove_all(far); }
  Delivery deliver(const std::vector<std::string>& folders, const std::string& name,
                   bool replace = true) const {
    Store store(options);
    EXPECT_EQ(3, pwrite(store.parts().open(kKey), "new", 3, 0)) << store.error();
    Delivery delivery = store.deliver(kKey, folders, name, replace);
    EXPECT_EQ(delivery.done, store.parts().left().empty());
    EXPECT_EQ(delivery.done, delivery.error.empty());
    return delivery;
  }
  static constexpr TransferKey kKey{7, 0x7F000001, 9};
  const fs::path far = mkdtemp(std::string("/dev/shm/store_XXXXXX").data());
  const fs::path hidden = root / "in/.tarnwick";
  StoreOptions options{root / "in", "", "", true, false, 0446, 0};
};

TEST_F(StoreTest, ReplacesOrNumbersAndSetsPermissions) {
  umask(027);
  EXPECT_TRUE(deliver({"a", "b"}, "f").done);
  fs::permissions(root / "in/a/b/f", fs::perms(0600));
  fs::resize_file(root / "in/a/b/f", 0);
  EXPECT_EQ("new", contents(deliver({"a", "b"}, "f").path));
  for (const auto& [name, mode] : {std::pair{"a/b/f", 0440}, {"a", 0750}, {".tarnwick", 0700}})
    EXPECT_EQ(fs::perms(mode), fs::status(root / "in" / name).permissions()) << name;
  for (const char* name : {"f.txt", "f (1).txt", "f (2).txt", "f (3).txt", "f (4).txt"}) {
    EXPECT_EQ(root / "in" / name, deliver({}, name, false).path);
    EXPECT_TRUE(deliver({}, "f.txt", false).taken);
  }
  EXPECT_EQ("f (5).txt", Store(options).free_name({}, "f.txt"));
  EXPECT_EQ(255U, Store(options).free_name({}, std::string(255, 'n')).size());
  EXPECT_FALSE(Store(options).has_file({"a"}, "b")) << "a folder";
}

TEST_F(StoreTest, WritesNothingOutside) {
  for (const char* each : {"out/sub", "in/folder"}) fs::create_directories(root / each);
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
  EXPECT_EQ(1U, number_in(root / "out") + number_in(root / "out/sub"));
}

TEST_F(StoreTest, KeepsJournalsAndUnfinishedFilesApart) {
  Store store(options);
  EXPECT_EQ("another receiver uses the folder " + options.into, Store(options).error());
  std::ofstream foreign(hidden / "parts/00000000000000ab");
  for (const TransferKey id : {TransferKey{UINT64_MAX, ~0U, 65535}, {1, 1, 2}, {1, 2, 1}}) {
    EXPECT_EQ(2, write(store.parts().open(id), "ab", 2));
    EXPECT_EQ(std::vector<TransferKey>{id}, store.parts().left());
    const Delivery kept = store.keep_incomplete(id, std::string(255, 'n'), "1-3");
    EXPECT_EQ("ab1-3", contents(kept.path) + contents(kept.path + ".missing.txt")) << kept.error;
    EXPECT_LE(0, store.parts().open(id));
    EXPECT_TRUE(store.deliver_journal(id, INT64_MIN, "j").done);
  }
  EXPECT_EQ(3U, number_in(hidden / "journals"));
}

TEST_F(StoreTest, KeepsFewFilesOpen) {
  Store store(options);
  for (std::uint64_t id = 0; id < 300; ++id) EXPECT_LE(0, store.parts().open({id}));
  EXPECT_GT(150U, number_in("/proc/self/fd"));
}

TEST_F(StoreTest, CopiesToAnotherFileSystemAndTidiesUpWhereItCanNot) {
  options.incomplete = far;
  Store store(options);
  EXPECT_EQ(3, pwrite(store.parts().open(kKey), "end", 3, 1 << 24));
  if (link((hidden / "parts" / key_text(kKey)).c_str(), (far / "x").c_str()) == 0)
    GTEST_SKIP() << "/dev/shm is on the file system of the temporary folder";
  {
    const FullDisk full(1 << 20);
    const Delivery kept = store.keep_incomplete(kKey, "f", "note");
    EXPECT_EQ("can't write " + (far / key_text(kKey)).string() + "-f: File too large", kept.error);
    EXPECT_EQ(0U, number_in(far));
    EXPECT_EQ(1U, store.parts().left().size());
  }
  const Delivery kept = store.keep_incomplete(kKey, "f", "note");
  EXPECT_EQ(std::string(1 << 24, '\0') + "end", contents(kept.path)) << kept.error;
  EXPECT_EQ(2U, number_in(far)) << "with its note";
  EXPECT_EQ(0U, store.parts().left().size());
}

TEST_F(StoreTest, RecordsWaitForTheLedgerTheNewestForLongest) {
  const Store store(options);
  const auto ledger = Ledger::open(root / "l", error);
  const Fd nowhere(open("/dev/null", O_WRONLY | O_CLOEXEC));
  Outlet outlet(nowhere.get());
  Events events(true, outlet, outlet);
  constexpr std::size_t kMost = 1500;  // more than are written at once
  Records records(*ledger, events, kMost);
  const auto record = [](std::uint64_t id, Outcome outcome, std::uint32_t crc = 5) {
    TransferRecord r;
    r.key.id = id, r.outcome = outcome, r.path_crc = crc;
    r.asked_for = "a", r.lies_at = "p" + std::to_string(id);
    return r;
  };
  const OtherProgram other(root / "l");
  other.run("BEGIN IMMEDIATE");
  EXPECT_FALSE(records.save(record(1, Outcome::kReceiving)));
  EXPECT_EQ(0U, records.waiting()) << "what is under way is saved again anyway";
  EXPECT_FALSE(records.save(record(1, Outcome::kIncomplete)));
  EXPECT_FALSE(records.save(record(1, Outcome::kDelivered)));
  EXPECT_FALSE(records.save(record(1, Outcome::kIncomplete, 6)));
  EXPECT_EQ(2U, records.waiting()) << "the later of a transfer counts";
  EXPECT_EQ(Outcome::kDelivered, records.find(record(1, {}))->outcome);
  const std::vector<TransferRecord> growing{record(3, Outcome::kReceiving),
                                            record(4, Outcome::kReceiving)};
  EXPECT_FALSE(records.save_all(growing));
  other.run("ROLLBACK");
  EXPECT_FALSE(records.save(record(2, Outcome::kDelivered))) << "in their order";
  EXPECT_FALSE(records.save_all(growing)) << "in their order";
  records.catch_up();
  EXPECT_EQ(0U, records.waiting());
  EXPECT_FALSE(records.is_behind({1}));
  EXPECT_EQ(3U, ledger->all({}).size());
  other.run("BEGIN IMMEDIATE");
  for (std::uint64_t id = 10; id < 12 + kMost; ++id)
    (void)records.save(record(id, Outcome::kDelivered));
  EXPECT_EQ(2U, records.lost()) << "the oldest";
  EXPECT_FALSE(records.were_certain());
  EXPECT_FALSE(records.is_behind({11}));
  EXPECT_TRUE(records.is_behind({12}));
  other.run("ROLLBACK");
  records.catch_up();
  EXPECT_EQ(3 + kMost, ledger->all({}).size());
}

TEST_F(StoreTest, PrunesItsOwnOldFilesOnlyAndTheLedgerByAndBy) {
  const Store store(options);
  const fs::path kept = hidden / "incomplete";
  const std::string key = key_text(kKey), name = key + "-f";
  for (const std::string& each :
       {name, name + ".missing.txt", "1700000000-" + key + "-j", key, key + "x-f", "x-" + name,
        "1x" + key + "-j", std::string("a.txt")})
    std::ofstream(kept / each) << "x";
  fs::create_directory(kept / (name + " folder")), fs::create_symlink("x", kept / (name + " link"));
  EXPECT_EQ(0U, prune_kept(store.incomplete_folder(), 1000)) << "none is that old";
  EXPECT_EQ(3U, prune_kept(store.incomplete_folder(), 9e9));
  EXPECT_EQ(7U, number_in(kept));
  const auto ledger = Ledger::open(root / "l", error);
  TransferRecord record;
  for (record.key.id = 1; record.key.id <= 502; ++record.key.id) {
    record.outcome = record.key.id == 501 ? Outcome::kReceiving : Outcome::kDelivered;
    record.last_packet = record.key.id == 502 ? 9e9 : 1;
    EXPECT_EQ("", ledger->save(record));
  }
  EXPECT_EQ("", ledger->add_journal({{200, 1, 2, "p", 0}, {UINT32_MAX, 1, 2, "p", 0}}));
  std::ofstream(kept / name) << "x";
  Pruning none(*ledger, store.journals_folder(), store.incomplete_folder(), 0);
  none.tick({0, 9e9});
  EXPECT_EQ(502U, ledger->all({}).size());
  Pruning pruning(*ledger, store.journals_folder(), store.incomplete_folder(), 60);
  pruning.tick({1, 4e9});
  EXPECT_EQ(302U, ledger->all({}).size()) << "by and by";
  for (int call = 0; call < 3; ++call) pruning.tick({1, 4e9});
  EXPECT_EQ(2U, ledger->all({}).size()) << "one on its way and a young one";
  EXPECT_EQ(1U, ledger->match_journal().size());
  EXPECT_FALSE(fs::exists(kept / name));
}

}  // namespace
