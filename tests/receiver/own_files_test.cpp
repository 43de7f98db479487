// What others planted in the places of the receiver's own files and folders.
#include "receiver/base/own_files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "receiver/deliver/boot.h"
#include "receiver/deliver/store.h"
#include "receiver/ledger/ledger.h"
#include "receiver/tell/metrics.h"

namespace fs = std::filesystem;

struct OwnFiles : testing::Test {
  OwnFiles() { std::ofstream(victim) << "precious"; }
  ~OwnFiles() override { fs::remove_all(root); }
  static std::string contents(const fs::path& path) {
    std::ostringstream bytes;
    bytes << std::ifstream(path).rdbuf();
    return bytes.str();
  }
  /// Does `act` with a link to the victim in the place of `path`, and with a pipe.
  template <typename Act>
  void with_planted(const fs::path& path, Act act) {
    for (const bool pipe : {false, true}) {
      fs::remove(path);
      ASSERT_EQ(0, pipe ? mkfifo(path.c_str(), 0666) : symlink(victim.c_str(), path.c_str()));
      SCOPED_TRACE(path.string() + (pipe ? " is a pipe" : " is a link"));
      act();
      EXPECT_EQ("precious", contents(victim));
    }
    fs::remove(path);
  }
  static bool is_file(const fs::path& path) {
    return fs::is_regular_file(fs::symlink_status(path));
  }
  static void own(const fs::path& path, uid_t user) {
    ASSERT_EQ(0, lchown(path.c_str(), user, user));
  }
  std::string folder_error(const fs::path& path, bool create = false) {
    const Fd folder = open_folder(path, create, error);
    EXPECT_EQ(error.empty(), static_cast<bool>(folder));
    return error;
  }

  std::string made = fs::temp_directory_path() / "own_files_XXXXXX", error;
  const fs::path root = mkdtemp(made.data()), victim = root / "victim";
  StoreOptions options{root / "in", "", "", false, false, 0666, 0};
};

TEST_F(OwnFiles, TheLedgersAreNeitherFollowedNorWaitedFor) {
  for (const char* beside : {"", "-wal", "-shm", "-journal"}) {
    const std::string name = std::string("ledger") + beside;
    with_planted(root / name, [&] {
      EXPECT_FALSE(Ledger::open(root / "ledger", error));
      EXPECT_NE(std::string::npos, error.find(name + " is no regular file")) << error;
    });
  }
  ASSERT_EQ(0, mkfifo((root / "pipe").c_str(), 0666));
  EXPECT_FALSE(Ledger::open_to_read(root / "pipe", error));
  fs::create_hard_link(victim, root / "ledger");
  EXPECT_FALSE(Ledger::open(root / "ledger", error));
  EXPECT_NE(std::string::npos, error.find("hard link")) << error;
}

TEST_F(OwnFiles, TheLedgerStaysInItsFolderWhenThePathIsExchanged) {
  fs::create_directories(root / "a");
  LedgerPlace place{open_folder(root / "a", false, error), "ledger", root / "a/ledger"};
  fs::rename(root / "a", root / "b"), fs::create_directory(root / "c");
  fs::create_directory_symlink("c", root / "a");
  const auto ledger = Ledger::open(std::move(place), error);
  ASSERT_TRUE(ledger) << error;
  EXPECT_EQ("", ledger->save({}));
  EXPECT_TRUE(is_file(root / "b/ledger-wal"));
  EXPECT_TRUE(fs::is_empty(root / "c"));
}

TEST_F(OwnFiles, TheMetricsReplaceOnlyAFile) {
  const fs::path path = root / "m";
  with_planted(path, [&] {
    EXPECT_EQ(path.string() + " is no regular file", MetricsFile(path).write({}));
    EXPECT_FALSE(is_file(path));
  });
  with_planted(root / "m.tmp", [&] { EXPECT_EQ("", MetricsFile(path).write({})); });
  EXPECT_NE("", contents(path));
  fs::create_directory(root / "m.tmp");
  EXPECT_EQ(path.string() + ": File exists", MetricsFile(path).write({}));
}

TEST_F(OwnFiles, ThoseInTheHiddenFolderAreNeitherFollowedNorWaitedFor) {
  Store store(options);
  const fs::path hidden = store.hidden_path(),
                 kept = hidden / "incomplete/0000000000000007-00000000-0000-f";
  with_planted(hidden / "boot_id", [&] {
    EXPECT_FALSE(is_same_boot(store.hidden_folder()));
    note_boot(store.hidden_folder());
    EXPECT_TRUE(is_same_boot(store.hidden_folder()));
  });
  with_planted(hidden / "boot_id.new", [&] { note_boot(store.hidden_folder()); });
  with_planted(hidden / "parts/0000000000000007-00000000-0000",
               [&] { EXPECT_EQ(-1, store.parts().open({7})); });
  for (const fs::path& note : {fs::path(kept) += ".missing.txt",
                               hidden / "incomplete/.tarnwick-0000000000000007-00000000-0000"}) {
    with_planted(note, [&] {
      EXPECT_LE(0, store.parts().open({7}));
      EXPECT_TRUE(store.keep_incomplete({7}, "f", "note").done);
      EXPECT_TRUE(is_file(kept.string() + ".missing.txt"));
    });
  }
}

TEST_F(OwnFiles, WhatOthersOwnOrMayWriteIsRefused) {
  EXPECT_EQ("", Store(options).error());
  const std::string hidden = root / "in/.tarnwick";
  for (const mode_t mode : {0720U, 0702U}) {
    ASSERT_EQ(0, chmod(hidden.c_str(), mode));
    EXPECT_NE(std::string::npos, Store(options).error().find("others may write to it"));
  }
  ASSERT_EQ(0, chmod(hidden.c_str(), 0755));
  EXPECT_EQ("", Store(options).error());
  if (geteuid() != 0) return;  // only root gives files to another user
  own(hidden, 4711);
  EXPECT_EQ("can't use the folder " + hidden + ": it belongs to another user (uid 4711)",
            Store(options).error());
  std::ofstream(root / "ledger-wal");  // a stranger's would be replayed into ours
  own(root / "ledger-wal", 4711);
  EXPECT_FALSE(Ledger::open(root / "ledger", error));
  EXPECT_NE(std::string::npos, error.find("ledger-wal belongs to another user")) << error;
}

TEST_F(OwnFiles, AStrangersLinkLeadsToNoFolderButTheStrangersOwn) {
  fs::create_directories(root / "real/sub");
  for (const auto& [to, link] : {std::pair{"real", "one"}, {"one/../one", "two"}, {"loop", "loop"}})
    fs::create_symlink(to, root / link);
  EXPECT_EQ("", folder_error(root / "two/sub/new/er", true));
  EXPECT_TRUE(fs::is_directory(root / "real/sub/new/er"));
  EXPECT_NE("", folder_error(root / "two/none"));
  EXPECT_NE("", folder_error(root / "loop/sub"));
  EXPECT_NE("", folder_error(victim));
  if (geteuid() != 0) return;  // only root gives links to another user
  own(root / "one", 4711);
  for (const char* path : {"one", "one/sub", "two"})
    EXPECT_EQ("a link of another user (uid 4711) leads there", folder_error(root / path)) << path;
  own(root / "real", 4711);
  EXPECT_EQ("", folder_error(root / "two/sub"));
}
