// What the next start makes of a kill, at any moment.
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <csignal>
#include <optional>

#include "harness.h"

std::function<void()> on_act = [] {};
int move_error = 0;
std::optional<ino_t> read_only_folder;

/// All of them, and each sync, in order.
static std::string acts;

int fsync(int fd) {
  acts += "sync ";
  return static_cast<int>(syscall(SYS_fsync, fd));
}

static int error_of_move_to(int folder) {
  struct stat info {};
  const bool is_locked =
      read_only_folder && fstat(folder, &info) == 0 && info.st_ino == *read_only_folder;
  return is_locked ? EROFS : move_error;
}

static int act(long result) { return on_act(), static_cast<int>(result); }

int renameat(int from, const char* name, int to, const char* new_name) noexcept {
  acts += "rename ";
  on_act();
  if (const int error = error_of_move_to(to); error != 0) return errno = error, -1;
  return act(syscall(SYS_renameat2, from, name, to, new_name, 0));
}

int renameat2(int from, const char* name, int to, const char* new_name, unsigned flags) noexcept {
  acts += "rename ";
  on_act();
  if (const int error = error_of_move_to(to); error != 0) return errno = error, -1;
  return act(syscall(SYS_renameat2, from, name, to, new_name, flags));
}

int unlinkat(int folder, const char* name, int flags) noexcept {
  acts += "remove ";
  on_act();
  return act(syscall(SYS_unlinkat, folder, name, flags));
}

struct Killed : Receive {
  /// Does `step` and keeps what is on the disk whenever a kill may come.
  void keep_moments_of(const std::function<void()>& step) {
    bool copying = false;
    const auto keep = [&] {
      if (std::exchange(copying, true)) return;
      fs::copy(into, root / "kept" / std::to_string(moments++), fs::copy_options::recursive);
      copying = false;
    };
    fs::create_directories(root / "kept");
    on_act = keep;
    step();
    keep();
    on_act = [] {};
  }
  /// Starts as the next run would after the kill at moment number `moment`.
  void start_after(int moment) {
    stop(), fs::remove_all(into);
    fs::rename(root / "kept" / std::to_string(moment), into);
    (void)console(), shown.clear();
    SCOPED_TRACE(moment);
    start();
  }
  std::size_t number_in(const char* folder) const {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(hidden / folder), {}));
  }
  int moments = 0;
};

TEST_F(Killed, AWholeFileIsDeliveredAndKnownSo) {
  File file{2, "f", random_bytes(5000, 1)};
  for (const bool has_earlier : {false, true}) {
    start();
    if (has_earlier) feed(File{1, "f", "earlier"}.pass());
    feed(file.pass(1, 1, file.parts() - 1)), pass_time(2);
    moments = 0;
    keep_moments_of([&] { feed({file.part(file.parts())}); });
    EXPECT_LT(2, moments);
    for (int moment = 0; moment < moments; ++moment) {
      start_after(moment);
      feed(file.pass());
      EXPECT_EQ("", told("incomplete", "path")) << moment;
      EXPECT_TRUE(file.bytes == contents(into / "f")) << moment;
      EXPECT_FALSE(fs::exists(into / "f (1)")) << moment;
      EXPECT_EQ((into / "f").string(), find(2)->delivered_to) << moment;
      EXPECT_EQ(0U, number_in("parts")) << moment;
    }
    stop(), fs::remove_all(into), fs::remove_all(root / "kept");
  }
}

TEST_F(Killed, TheBytesAreOnTheDiskBeforeTheirNameIsAndWithThatBeforeTheRecord) {
  synced = true, start();
  feed({File{1, "f", "bytes"}.header()}), acts.clear();
  feed({File{1, "f", "bytes"}.part(1)});
  EXPECT_EQ("sync rename sync remove ", acts.substr(0, 24));
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
  for (int moment = 0; moment < moments; ++moment) {
    start_after(moment);
    for (const std::uint64_t id : {1U, 2U}) {
      EXPECT_EQ(Outcome::kIncomplete, find(id)->outcome) << moment;
    }
    EXPECT_EQ(0U, number_in("parts")) << moment;
  }
}

TEST_F(Killed, AFileThatWasGivenUpIsNotTakenForDelivered) {
  const File file{1, "f", random_bytes(5000, 1)};
  start();
  feed({file.header(), file.part(2)}), pass_time(2);
  keep_moments_of([&] { pass_time(61); });
  EXPECT_LT(4, moments);
  for (int moment = 0; moment < moments; ++moment) {
    start_after(moment);
    pass_time(61);
    EXPECT_EQ(Outcome::kIncomplete, find(1)->outcome) << moment;
    EXPECT_EQ("no more packets came", find(1)->why) << moment;
    EXPECT_FALSE(fs::exists(into / "f")) << moment;
    EXPECT_EQ(0U, number_in("parts")) << moment;
    EXPECT_EQ(2U, number_in("incomplete")) << "with its note, and no temporary of " << moment;
  }
}

TEST_F(Killed, AFileThatWaitedIsKnownWhereItWentAtLast) {
  start();
  move_error = EACCES;
  feed(File{1, "f", "x"}.pass());
  move_error = 0;
  fs::create_directory(into / "f");
  keep_moments_of([&] { pass_time(6); });
  for (int moment = 0; moment < moments; ++moment) {
    start_after(moment);
    EXPECT_EQ((into / "f (1)").string(), find(1)->delivered_to) << moment;
    EXPECT_EQ("x", contents(into / "f (1)")) << moment;
  }
}

TEST_F(Killed, AJournalIsReadOnceItLiesInItsFolder) {
  const File journal{1, "j", File{9, "sent", ""}.journal_line(), "", 1400, 1};
  start();
  keep_moments_of([&] { feed(journal.pass()); });
  for (int moment = 0; moment < moments; ++moment) {
    start_after(moment);
    EXPECT_EQ(number_in("journals"), ledger->match_journal().size()) << moment;
    feed(journal.pass());
    EXPECT_EQ(1U, number_in("journals")) << moment;
    EXPECT_EQ(1U, ledger->match_journal().size()) << moment;
  }
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
      EXPECT_EQ(goes_on && row.has_part ? 1U : 0U, number_in("parts")) << kind;
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

TEST_F(Killed, KnowsWhoseNameItWasWhenKilledBetweenMoveAndRecord) {
  start();
  File first{1, "f", "first"}, second{2, "f", "second"}, third{3, "f", "third"};
  first.path = "/1", second.path = "/2", third.path = "/3";
  feed(first.pass());
  TransferRecord moved = *find(1);
  moved.outcome = Outcome::kReceiving, moved.delivered_to = "";
  EXPECT_EQ("", ledger->save(moved));
  start();
  EXPECT_EQ((into / "f").string(), find(1)->delivered_to);
  feed(second.pass());
  EXPECT_EQ("firstsecond", contents(into / "f") + contents(into / "f (1)"));
  const rlimit small{100, RLIM_INFINITY};  // no record can be written
  rlimit limit{};
  (void)signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(0, prlimit(0, RLIMIT_FSIZE, &small, &limit));
  feed(third.pass());
  third.id = 4, third.bytes = "again";
  feed(third.pass());
  setrlimit(RLIMIT_FSIZE, &limit);
  EXPECT_EQ("firstsecondagain",
            contents(into / "f") + contents(into / "f (1)") + contents(into / "f (2)"));
}
