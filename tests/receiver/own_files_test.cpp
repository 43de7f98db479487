// What others planted in the places of the receiver's own files and folders.
#include "receiver/base/own_files.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "receiver/deliver/boot.h"
#include "receiver/deliver/store.h"
#include "receiver/ledger/ledger.h"
#include "receiver/tell/metrics.h"
#include "tests/receiver/folder.h"

namespace {

struct OwnFiles : InFolder {
  OwnFiles() { std::ofstream(victim) << "precious"; }
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
  /// "", or why the ledger `name` can't be used.
  std::string ledger_error(const char* name) {
    return Ledger::open(root / name, error) ? "" : error.substr(error.rfind(": ") + 2);
  }
  const fs::path victim = root / "victim";
  StoreOptions options{root / "in", "", "", false, false, 0666, 0};
};

TEST_F(OwnFiles, TheLedgersAreNeitherFollowedNorWaitedFor) {
  for (const std::string name : {"ledger", "ledger-wal", "ledger-shm", "ledger-journal"}) {
    with_planted(root / name,
                 [&] { EXPECT_EQ(name + " is no regular file", ledger_error("ledger")); });
  }
  ASSERT_EQ(0, mkfifo((root / "pipe").c_str(), 0666));
  EXPECT_FALSE(Ledger::open_to_read(root / "pipe", error));
  fs::create_hard_link(victim, root / "ledger");
  EXPECT_EQ("ledger is a hard link to another file", ledger_error("ledger"));
  if (geteuid() != 0) return;         // only root gives files to another user
  std::ofstream(root / "other-wal");  // a stranger's would be replayed into ours
  own(root / "other-wal", 4711);
  EXPECT_EQ("other-wal belongs to another user (uid 4711)", ledger_error("other"));
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
  const std::string path = root / "m";
  with_planted(path, [&] {
    EXPECT_EQ(path + " is no regular file", MetricsFile(path).write({}));
    EXPECT_FALSE(is_file(path));
  });
  with_planted(path + ".tmp", [&] { EXPECT_EQ("", MetricsFile(path).write({})); });
  EXPECT_NE("", contents(path));
  fs::create_directory(path + ".tmp");
  EXPECT_EQ(path + ": File exists", MetricsFile(path).write({}));
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
  const auto error_for = [&](mode_t mode) {
    EXPECT_EQ(0, chmod((root / "in/.tarnwick").c_str(), mode));
    return Store(options).error();
  };
  EXPECT_EQ("", Store(options).error());
  EXPECT_EQ("", error_for(0755));
  for (const mode_t mode : {0720U, 0702U})
    EXPECT_NE(std::string::npos, error_for(mode).find("others may write to it")) << mode;
  if (geteuid() != 0) return;  // only root gives files to another user
  own(root / "in/.tarnwick", 4711);
  EXPECT_EQ("can't use the folder " + (root / "in/.tarnwick").string() +
                ": it belongs to another user (uid 4711)",
            error_for(0755));
}

TEST_F(OwnFiles, AStrangersLinkLeadsToNoFolderButTheStrangersOwn) {
  fs::create_directories(root / "real/sub");
  for (const auto& [to, link] : {std::pair{"real", "one"}, {"one/../one", "two"}, {"loop", "loop"}})
    fs::create_symlink(to, root / link);
  EXPECT_EQ("", folder_error(root / "two/sub/new/er", true));
  EXPECT_TRUE(fs::is_directory(root / "real/sub/new/er"));
  EXPECT_EQ("No such file or directory", folder_error(root / "two/none"));
  EXPECT_EQ("Too many levels of symbolic links", folder_error(root / "loop/sub"));
  EXPECT_EQ("Not a directory", folder_error(victim));
  EXPECT_EQ("No such file or directory", folder_error(""));
  if (geteuid() != 0) return;  // only root gives links to another user
  own(root / "one", 4711);
  for (const char* path : {"one", "one/sub", "two"})
    EXPECT_EQ("a link of another user (uid 4711) leads there", folder_error(root / path)) << path;
  own(root / "real", 4711);
  EXPECT_EQ("", folder_error(root / "two/sub"));
}

}  // namespace
