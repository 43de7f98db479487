// What the next start makes of a kill, at any moment.
#include <sys/stat.h>
#include <sys/syscall.h>

#include <deque>
#include <optional>

#include "harness.h"

std::function<void()> on_act = [] {};
int move_error = 0;
std::optional<ino_t> read_only_folder;

static std::string acts;             // all of them, and each sync, in order
static std::deque<int> sync_errors;  // of the next syncs; 0: none

int fsync(int fd) {
  acts += "sync ";
  int error = 0;
  if (!sync_errors.empty()) error = sync_errors.front(), sync_errors.pop_front();
  return error != 0 ? errno = error, -1 : static_cast<int>(syscall(SYS_fsync, fd));
}

/// Does what changes `folder`, unless it is to fail.
template <typename Call>
static int act(const char* what, int folder, bool can_fail, Call call) {
  acts += what;
  on_act();
  struct stat info {};
  const bool is_locked =
      read_only_folder && fstat(folder, &info) == 0 && info.st_ino == *read_only_folder;
  const int error = is_locked ? EROFS : move_error;
  if (can_fail && error != 0) return errno = error, -1;
  const auto result = static_cast<int>(call());
  on_act();
  return result;
}

int renameat2(int from, const char* name, int to, const char* new_name, unsigned flags) noexcept {
  return act("rename ", to, true,
             [=] { return syscall(SYS_renameat2, from, name, to, new_name, flags); });
}

int renameat(int from, const char* name, int to, const char* new_name) noexcept {
  return renameat2(from, name, to, new_name, 0);
}

int mkdirat(int folder, const char* name, mode_t mode) noexcept {
  return act("mkdir ", folder, true, [=] { return syscall(SYS_mkdirat, folder, name, mode); });
}

int unlinkat(int folder, const char* name, int flags) noexcept {
  return act("remove ", folder, false, [=] { return syscall(SYS_unlinkat, folder, name, flags); });
}

struct Killed : Receive {
  ~Killed() override {
    on_act = [] {};
  }
  /// Does `step` and keeps what is on the disk whenever a kill may come.
  void keep_moments_of(const std::function<void()>& step) {
    fs::remove_all(root / "kept");
    fs::create_directories(root / "kept");
    bool copying = false;
    moments = 0;
    on_act = [&] {
      if (std::exchange(copying, true)) return;
      fs::copy(into, root / "kept" / std::to_string(moments++), fs::copy_options::recursive);
      copying = false;
    };
    step();
    on_act();
    on_act = [] {};
  }
  /// Starts as the next run would after a kill at each of the moments, and calls `check`.
  void start_after_each(const std::function<void()>& check) {
    for (int moment = 0; moment < moments; ++moment) {
      stop(), fs::remove_all(into);
      fs::rename(root / "kept" / std::to_string(moment), into);
      (void)console(), shown.clear();
      SCOPED_TRACE("moment " + std::to_string(moment) + " of " + std::to_string(moments));
      start();
      check();
    }
  }
  int moments = 0;
};

TEST_F(Killed, AWholeFileIsDeliveredAndKnownSo) {
  const File file{2, "f", random_bytes(5000, 1)};
  File other{3, "f", "other"};
  other.path = "/other";
  for (const std::string before : {"nothing", "an earlier file", "giving up in vain", "a wait"}) {
    SCOPED_TRACE("before: " + before);
    const fs::path expected = into / (before == "a wait" ? "f (1)" : "f");
    start();
    if (before == "an earlier file") feed(File{1, "f", "earlier"}.pass());
    feed(file.pass(1, 1, file.parts() - 1)), pass_time(2);
    move_error = before == "giving up in vain" || before == "a wait" ? EACCES : 0;
    if (before == "giving up in vain") pass_time(61);
    if (before == "a wait") feed(file.pass());
    move_error = 0;
    if (before == "a wait") fs::create_directory(into / "f");
    keep_moments_of([&] { feed({file.part(file.parts())}), pass_time(6); });
    EXPECT_LT(2, moments);
    start_after_each([&] {
      feed(file.pass()), feed(other.pass());
      EXPECT_EQ("", told("incomplete", "path"));
      EXPECT_EQ(expected, find(2)->delivered_to);
      EXPECT_TRUE(file.bytes == contents(expected)) << "no other path's file replaced it";
      EXPECT_EQ(3U, number_in(into) - fs::is_directory(into / "f"));
      EXPECT_EQ(0U, number_in(hidden / "parts"));
    });
    stop(), fs::remove_all(into);
  }
}

TEST_F(Killed, TheBytesAreOnTheDiskBeforeTheirNameIsAndWithThatBeforeTheRecord) {
  synced = true, start();
  const File file{1, "f", "bytes", "d"};
  feed({file.header()}), acts.clear();
  on_act = [&] { EXPECT_EQ(Outcome::kReceiving, find(1)->outcome) << acts; };
  feed({file.part(1)});
  EXPECT_EQ("mkdir sync sync rename sync remove ", acts);
  EXPECT_EQ(Outcome::kDelivered, find(1)->outcome);
}

TEST_F(Killed, WhatCanNotBeSyncedIsNotCalledSafe) {
  synced = true, start();
  sync_errors = {EIO};
  feed(File{1, "f", "x"}.pass());
  EXPECT_EQ("f ", told("incomplete", "path")) << "nobody knows what of it is on the disk";
  sync_errors = {0, EIO};
  feed(File{2, "g", "x"}.pass());
  EXPECT_EQ("g ", told("delivered", "path"));
  EXPECT_NE(std::string::npos, told("warning", "text").find("may not survive a power cut"));
  fs::create_symlink("nowhere", into / "d");
  feed({File{3, "waits", "x", "d"}.header()}), acts.clear();
  feed({File{3, "waits", "x", "d"}.part(1)});
  EXPECT_EQ("sync ", acts) << "what waits outlasts a restart of the machine";
  sync_errors = {EIO};
  feed(File{4, "h", "x", "d"}.pass());
  EXPECT_EQ("f d/h ", told("incomplete", "path"));
}

TEST_F(Killed, TheBootIsNotedWhenNothingOfTheOneBeforeIsLeft) {
  start();
  for (const std::uint64_t id : {1U, 2U}) {
    const File file{id, std::to_string(id), random_bytes(5000, id)};
    feed({file.header(), file.part(2)});
  }
  pass_time(2), std::ofstream(hidden / "boot_id") << "another\n";
  keep_moments_of([&] { start(); });
  EXPECT_LT(4, moments);
  start_after_each([&] {
    EXPECT_EQ(2U, ledger->all(Outcome::kIncomplete).size());
    EXPECT_EQ(0U, number_in(hidden / "parts"));
  });
}

TEST_F(Killed, AFileThatWasGivenUpIsNotTakenForDelivered) {
  const File file{1, "f", random_bytes(5000, 1)};
  start();
  feed({file.header(), file.part(2)}), pass_time(2);
  keep_moments_of([&] { pass_time(61); });
  EXPECT_LT(4, moments);
  start_after_each([&] {
    pass_time(61);
    EXPECT_EQ(Outcome::kIncomplete, find(1)->outcome);
    EXPECT_EQ("no more packets came", find(1)->why);
    EXPECT_FALSE(fs::exists(into / "f"));
    EXPECT_EQ(0U, number_in(hidden / "parts"));
    EXPECT_EQ(2U, number_in(hidden / "incomplete")) << "with its note, and no temporary";
  });
}

TEST_F(Killed, AJournalIsReadOnceItLiesInItsFolder) {
  const File sent{9, std::string(2000, 's'), ""};
  const File journal{1, "j", sent.journal_line(), "", 1400, 1};
  start();
  feed({journal.header(), journal.part(1)}), pass_time(2);
  keep_moments_of([&] { feed({journal.part(2)}); });
  start_after_each([&] {
    EXPECT_EQ(number_in(hidden / "journals"), ledger->match_journal().size());
    feed(journal.pass());
    EXPECT_EQ("", told("incomplete", "path"));
    EXPECT_EQ(1U, number_in(hidden / "journals"));
    EXPECT_EQ(1U, ledger->match_journal().size());
  });
}

TEST_F(Killed, WhatARunLeftGoesOnOrIsNamed) {
  const struct {
    const char* what;
    Outcome outcome;
    const char* why;
    std::uint64_t parts, received;
    bool has_part;
    std::string then, after_another_boot;
  } left[] = {
      {"growing", Outcome::kReceiving, "", 2, 1, true, "receiving",
       "incomplete: the machine was restarted"},
      {"whole, not yet moved", Outcome::kReceiving, "", 2, 2, true, "delivered",
       "incomplete: the machine was restarted"},
      {"moved to its place", Outcome::kReceiving, "", 2, 2, false, "delivered", "delivered"},
      {"bytes gone", Outcome::kReceiving, "", 2, 1, false, "incomplete: its bytes are gone",
       "incomplete: its bytes are gone"},
      {"nothing had come", Outcome::kReceiving, "", 2, 0, false, "receiving",
       "incomplete: its bytes are gone"},
      {"moved to the unfinished", Outcome::kReceiving, "given up", 2, 1, false,
       "incomplete: given up", "incomplete: given up"},
      {"whole, moved to the unfinished", Outcome::kReceiving, "given up", 2, 2, false,
       "incomplete: given up", "incomplete: given up"},
      {"about to be given up", Outcome::kReceiving, "given up", 2, 1, true, "receiving",
       "incomplete: the machine was restarted"},
      {"waiting", Outcome::kWaiting, "no place", 2, 2, true, "delivered", "delivered"},
      {"waiting, and moved then", Outcome::kWaiting, "no place", 2, 2, false, "delivered",
       "delivered"},
      {"an empty one that waited", Outcome::kWaiting, "no place", 0, 0, false, "delivered",
       "delivered"},
      {"an empty one, moved", Outcome::kReceiving, "", 0, 0, false, "delivered", "delivered"},
  };
  for (const bool same_boot : {true, false}) {
    for (const auto& row : left) {
      start();
      const std::string kind = std::string(row.what) + (same_boot ? "" : ", restarted");
      TransferRecord record;
      record.key = {1, 0x7F000001, 0}, record.name = "f", record.udata_size = 1400;
      record.parts = row.parts, record.size = row.parts * 1380, record.received = row.received;
      record.missing = row.received < row.parts ? row.received == 0 ? "1-2" : "2" : "";
      record.outcome = row.outcome, record.why = row.why, record.last_packet = now.real;
      EXPECT_EQ("", ledger->save(record));
      const TransferKey unknown{2, 0x7F000001, 0};
      EXPECT_LE(0, store->parts().open(unknown));
      if (row.has_part) (void)!pwrite(store->parts().open(record.key), "x", 1, 2759);
      if (!same_boot) std::ofstream(hidden / "boot_id") << "another\n";
      start(), pass_time(1);
      record = *find(1);
      EXPECT_EQ(same_boot ? row.then : row.after_another_boot,
                outcome_name(record.outcome) +
                    (record.outcome == Outcome::kIncomplete ? ": " + record.why : ""))
          << kind;
      const bool is_delivered = record.outcome == Outcome::kDelivered;
      const bool was_to_be = row.has_part || (row.outcome == Outcome::kWaiting && row.parts == 0);
      EXPECT_EQ(is_delivered && was_to_be, fs::exists(into / "f")) << kind;
      EXPECT_EQ(is_delivered, record.why.empty() && record.outcome != Outcome::kReceiving) << kind;
      const bool goes_on = record.outcome == Outcome::kReceiving;
      EXPECT_EQ(goes_on && row.has_part ? 1U : 0U, number_in(hidden / "parts")) << kind;
      EXPECT_TRUE(metric_is("open_transfers " + std::to_string(goes_on))) << kind;
      start();
      EXPECT_EQ(record.outcome, find(1)->outcome) << kind << ", the same at the next start";
      stop(), fs::remove_all(into);
    }
  }
}

TEST_F(Killed, OfTwoRecordsOfOneKeyTheFirstHasTheBytes) {
  for (const bool has_part : {true, false}) {
    start();
    TransferRecord record;
    record.key = {1, 0x7F000001, 0}, record.parts = 2, record.udata_size = 1400;
    record.size = 2000, record.received = has_part ? 1 : 0, record.missing = has_part ? "2" : "1-2";
    for (const char* name : {"first", "second"}) {
      record.name = name, ++record.path_crc, record.last_packet = now.real + record.path_crc;
      EXPECT_EQ("", ledger->save(record));
    }
    if (has_part) (void)store->parts().open(record.key);
    start();
    EXPECT_EQ(has_part ? "second " : "", told("incomplete", "path"));
    EXPECT_TRUE(metric_is("open_transfers 1"));
    stop(), fs::remove_all(into), shown.clear();
  }
}

TEST_F(Killed, ALedgerThatCanNotBeReadCostsNoBytes) {
  start();
  for (std::uint64_t id = 1; id <= 2; ++id) {
    TransferRecord record;
    record.key.id = id, record.missing.assign(1 << 16, '1'), record.outcome = Outcome::kReceiving;
    EXPECT_EQ("", ledger->save(record));
  }
  EXPECT_LE(0, store->parts().open({3, 0, 0}));
  stop();
  std::fstream(hidden / "ledger.sqlite", std::ios::in | std::ios::out).seekp(1 << 16)
      << std::string(1 << 13, 'x');
  start();
  EXPECT_EQ(0U, told("warning", "text").find("ledger: Can't read ledger ")) << console();
  EXPECT_TRUE(fs::exists(hidden / "parts/0000000000000003-00000000-0000"));
}
