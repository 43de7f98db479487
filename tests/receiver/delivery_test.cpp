// Where files are delivered, and what becomes of those that can't be.
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/vfs.h>

#include <optional>

#include "harness.h"

/// What the system says is free, while it is set.
static std::optional<std::uint64_t> free_bytes;

extern "C" int fstatvfs(int fd, struct statvfs* disk) noexcept {
  struct statfs info {};
  if (fstatfs(fd, &info) != 0) return -1;
  *disk = {};
  disk->f_frsize = free_bytes ? 1 : static_cast<unsigned long>(info.f_frsize);
  disk->f_bavail = free_bytes.value_or(info.f_bavail);
  return 0;
}

TEST_F(Receive, NeverReplacesWhatAnotherPathBrought) {
  std::uint64_t id = 0;
  const auto arrives_as = [&](const std::string& path, const std::string& bytes,
                              const char* address = "127.0.0.1") {
    File file{++id, "F.txt", bytes, "d"};
    file.path = path;
    feed(file.pass(), address, static_cast<std::uint16_t>(id));
    const TransferRecord record = *find(id);
    EXPECT_EQ(bytes, contents(into / record.lies_at)) << path;
    return fs::path(record.lies_at).filename().string() + (record.collided ? " collided" : "");
  };
  start();
  fs::create_directories(into / "d"), std::ofstream(into / "d/F.txt") << "in no ledger";
  EXPECT_EQ("F.txt", arrives_as("/one", "1"));
  EXPECT_EQ("F (1).txt collided", arrives_as("/two", "2"));
  EXPECT_EQ("F (2).txt collided", arrives_as("/one", "other sender", "127.0.0.2"));
  for (const bool anew : {false, true}) {
    EXPECT_EQ("F.txt", arrives_as("/one", "1 again"));
    EXPECT_EQ("F (1).txt collided", arrives_as("/two", "2 again"));
    EXPECT_EQ("F (2).txt collided", arrives_as("/one", "again", "127.0.0.2"));
    if (!anew) start();
  }
  EXPECT_TRUE(metric_is("name_collisions_total 2"));
  fs::remove(into / "d/F (1).txt");
  EXPECT_EQ("F (1).txt collided", arrives_as("/two", "moved away"));
  fs::remove(into / "d/F.txt");
  EXPECT_EQ("F.txt", arrives_as("/three", "3"));
  EXPECT_EQ("F (3).txt collided", arrives_as("/one", "its name went to another"));
  std::ofstream(into / "d/F (4).txt") << "in no ledger";
  EXPECT_EQ("F (5).txt collided", arrives_as("/four", "4"));
  fs::remove(into / "d/F.txt"), fs::create_directory(into / "d/F.txt");
  int acts = 0;
  on_act = [&] {  // between the look for a free name and the move
    if (++acts == 5) std::ofstream(into / "d/F (6).txt") << "in no ledger";
  };
  EXPECT_EQ("F (7).txt collided", arrives_as("/three", "a folder has the name"));
  on_act = [] {};
  for (const char* stranger : {"d/F (4).txt", "d/F (6).txt"})
    EXPECT_EQ("in no ledger", contents(into / stranger)) << stranger;
  start({"--keep-existing"});
  EXPECT_EQ("F (8).txt", arrives_as("/three", "kept"));
  std::ostringstream report;
  EXPECT_EQ(0U, print_report(*ledger, {}, report));
  EXPECT_NE(std::string::npos, report.str().find("; 10 names collided"));
}

TEST_F(Receive, WholeFilesThatCanNotBeDeliveredWaitAndAreDeliveredInOrder) {
  const File first{1, "f", "first", "d"}, second{2, "f", "second", "d"}, none{3, "e", "", "d"};
  const File below{4, "x", "x", "d/new"}, late{5, "late", "late"};
  File other = first;  // no header packet costs a file that waits
  other.name = "other";
  const std::string why = "complete, but can't be delivered: can't ";
  for (const bool restarted : {false, true}) {
    SCOPED_TRACE(restarted ? "after a restart of the machine" : "in the same run");
    start({"--max-transfers", "4"});
    fs::create_directory(into / "d");
    struct stat locked {};
    ASSERT_EQ(0, stat((into / "d").c_str(), &locked));
    read_only_folder = locked.st_ino;
    for (const File& file : {first, other, second, none, below, late}) feed(file.pass());
    EXPECT_EQ("too many whole files wait for the disk (--max-transfers) ", told("refused", "why"));
    EXPECT_EQ("d/f", find(1)->asked_for);
    EXPECT_EQ("d/f", find(1)->lies_at) << "what the next start needs if a kill follows the move";
    EXPECT_EQ(why + "write " + (into / "d/f: Read-only file system").string(), find(1)->why);
    EXPECT_EQ(why + "open the folder " + (into / "d/new: Read-only file system").string(),
              find(4)->why);
    EXPECT_TRUE(metric_is("waiting_files 4"));
    pass_time(6);
    read_only_folder.reset();
    pass_time(4);
    EXPECT_EQ("", told("delivered", "path")) << "it is not tried all the time";
    std::ofstream(hidden / "boot_id") << "another\n";
    if (restarted) start();
    pass_time(2), pass_time(6);
    EXPECT_EQ("d/f d/f d/e d/new/x ", told("delivered", "path"));
    EXPECT_EQ("second", contents(into / "d/f"));
    EXPECT_EQ("", told("incomplete", "path"));
    EXPECT_TRUE(metric_is("waiting_files 0"));
    feed(late.pass());
    EXPECT_EQ("late", contents(into / "late"));
    (void)console(), shown.clear();
    stop(), fs::remove_all(into);
  }
}

TEST_F(Receive, WhatCanNotBeKeptStaysAndIsWarnedOfOnce) {
  const File file{1, "f", random_bytes(2000, 1)};
  start();
  feed({file.header(), file.part(1)});
  move_error = EACCES;
  pass_time(61), pass_time(6), pass_time(6);
  const std::string told_so_far = told("warning", "text"), text = "can't keep an incomplete file";
  EXPECT_NE(std::string::npos, told_so_far.find(text));
  EXPECT_EQ(told_so_far.find(text), told_so_far.rfind(text));
  EXPECT_EQ("", told("incomplete", "path"));
  move_error = 0;
  pass_time(6);
  EXPECT_EQ("f ", told("incomplete", "path"));
}

TEST_F(Receive, BeginsAnewOnlyWhenTheLedgerKnowsThatTheOldAttemptIsOver) {
  start();
  const File file{7, "f", random_bytes(2000, 1)};
  feed({file.header(), file.part(1)}), pass_time(2);
  const TransferRecord growing = *find(7);
  pass_time(61);
  EXPECT_EQ("", ledger->save(growing));  // as if that had never been recorded
  const OtherProgram other(hidden / "ledger.sqlite");
  other.run("BEGIN IMMEDIATE");
  feed({file.header()});
  EXPECT_TRUE(metric_is("open_transfers 0"));
  other.run("ROLLBACK");
  feed({file.header()});
  EXPECT_EQ("1-2", find(7)->missing);
  EXPECT_TRUE(metric_is("open_transfers 1"));
}

TEST_F(Receive, NumbersAFolderThatHasAFilesName) {
  start();
  feed(File{1, "Stra", "a file"}.pass());
  feed(File{2, "x", "1", "Stra/sub"}.pass()), start(), feed(File{3, "y", "2", "Stra/sub"}.pass());
  feed(File{4, "x", "1 again", "Stra/sub"}.pass());
  EXPECT_EQ("a file", contents(into / "Stra"));
  EXPECT_EQ("1 again", contents(into / "Stra (1)/sub/x"));
  EXPECT_EQ("2", contents(into / "Stra (1)/sub/y"));
  EXPECT_TRUE(find(3)->collided);
  EXPECT_EQ("Stra/sub/y", find(3)->asked_for);
  EXPECT_EQ(1, std::distance(fs::directory_iterator(into / "Stra (1)"), {}));
}

TEST_F(Receive, FollowsNoLinkThatTakesThePlaceOfANewFolder) {
  start();
  fs::create_directory(root / "outside");
  on_act = [&] {
    if (!fs::is_directory(fs::symlink_status(into / "d"))) return;
    fs::remove(into / "d"), fs::create_symlink(root / "outside", into / "d");
  };
  feed(File{1, "f", "x", "d"}.pass());
  on_act = [] {};
  EXPECT_TRUE(fs::is_symlink(into / "d"));
  EXPECT_TRUE(fs::is_empty(root / "outside"));
}

TEST_F(Receive, NoDiskOrDescriptorForAWhileCostsNoFileThatComesAgain) {
  const File big{1, "big", random_bytes(2'000'000, 1)}, small{2, "small", random_bytes(99'000, 2)};
  Strings backwards = big.pass(0);  // each part is written by itself
  std::reverse(backwards.begin(), backwards.end());
  for (const std::string lacks : {"disk", "descriptors"}) {
    SCOPED_TRACE(lacks);
    start();
    feed({big.header(), small.header(), small.part(9)});
    if (lacks == "disk") {
      const FullDisk full(1 << 20);
      feed(backwards), pass_time(2);
    } else {
      const rlimit few{3, 1024}, many{1024, 1024};
      pass_time(0);
      EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &few));
      for (const std::uint64_t id : {1U, 2U}) store->parts().close({id, 0x7F000001, 0});
      feed(backwards), pass_time(2);
      EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &many));
    }
    feed(small.pass());
    EXPECT_FALSE(fs::exists(into / "big"));
    EXPECT_NE(std::string::npos, told("warning", "text").find("parts could not be written"));
    feed(big.pass());
    EXPECT_TRUE(small.bytes == contents(into / "small"));
    EXPECT_TRUE(big.bytes == contents(into / "big"));
    EXPECT_EQ("small big ", told("delivered", "path"));
    EXPECT_EQ(lacks == "disk", big.parts() > find(1)->received_per_pass[1]) << "what was written";
    stop(), fs::remove_all(into), shown.clear();
  }
}

TEST_F(Receive, KeepsRoomForTheFilesThatAreOnTheirWay) {
  start();
  const File growing{1, "growing", random_bytes(27'600, 1)}, late{2, "late", "late"};
  feed(growing.pass(1, 1, 9));
  free_bytes = 9 * 1380 + 3;
  for (int times = 0; times < 2; ++times) feed({late.header()});
  EXPECT_EQ("not enough free disk space ", told("refused", "why")) << "once";
  ++*free_bytes;
  feed(late.pass());
  free_bytes.reset();
  EXPECT_EQ("late", contents(into / "late"));
}

TEST_F(Receive, WaitsForNoLedger) {
  start();
  feed(File{1, "f", "first"}.pass()), feed(File{2, "half", random_bytes(2000, 1)}.pass(1, 2));
  pass_time(2);
  const OtherProgram other(hidden / "ledger.sqlite");
  other.run("BEGIN EXCLUSIVE");
  File stranger{3, "f", "stranger"};
  stranger.path = "/other";
  feed(stranger.pass()), feed(File{4, "f", "first again"}.pass());
  stranger.id = 5, stranger.bytes = "stranger again";
  feed(stranger.pass()), feed(stranger.pass());
  feed(File{6, "j", stranger.journal_line(), "", 1400, 1}.pass());
  pass_time(61), feed(File{2, "half", random_bytes(2000, 1)}.pass(1, 1, 1));
  EXPECT_EQ(1U, ledger->all(Outcome::kDelivered).size());
  EXPECT_EQ("f f f f ", told("delivered", "path"));
  EXPECT_EQ("first again", contents(into / "f"));
  EXPECT_EQ("stranger again", contents(into / "f (1)"));
  EXPECT_TRUE(fs::is_empty(hidden / "parts") || metric_is("waiting_files 1"));
  other.run("ROLLBACK");
  pass_time(6);
  const std::string warnings = told("warning", "text");
  EXPECT_EQ(0U, warnings.rfind("ledger: Can't write ")) << "once: " << warnings;
  EXPECT_EQ(5U, ledger->all(Outcome::kDelivered).size());
  EXPECT_EQ(1U, ledger->match_journal().size());
  EXPECT_EQ("half", ledger->all(Outcome::kIncomplete).at(0).name);
  EXPECT_TRUE(metric_is("waiting_records 0"));
}

TEST_F(Receive, TheLedgerHoldsAllOnceItHasRoomOrIsMadeAnew) {
  start({"--max-file-size", "2000"});
  const std::string large(2001, 'x');
  {
    const FullDisk full(100);
    feed(File{300, "f", "small"}.pass());
    for (std::uint64_t id = 2; id <= 201; ++id) {
      feed({File{id, "f", large}.header(), File{id, "f", large}.header()});
      if (id == 101) pass_time(0.5);
    }
    pass_time(2);
    EXPECT_EQ("f ", told("delivered", "path"));
    EXPECT_FALSE(find(300));
  }
  feed(File{1, "open", large.substr(1)}.pass(1, 2));
  for (const bool anew : {false, true}) {
    if (anew) fs::remove(hidden / "ledger.sqlite");
    receiver->end({});
    const auto reader = Ledger::open_to_read(hidden / "ledger.sqlite", error);
    ASSERT_TRUE(reader) << error;
    EXPECT_EQ(1U, reader->all(Outcome::kDelivered).size()) << anew;
    EXPECT_EQ(1U, reader->all(Outcome::kReceiving).size()) << anew;
    EXPECT_EQ(30U, reader->all(Outcome::kRefused).size()) << anew;
    EXPECT_EQ((Refusals{{"larger than --max-file-size", 200}}), reader->refusals()) << anew;
  }
  EXPECT_NE(std::string::npos, told("warning", "text").find("was made anew; it holds 32 records"));
}

TEST_F(Receive, ReadsALongJournalInPortions) {
  start();
  std::string lines;
  for (int line = 0; line <= 50'000; ++line) lines += "\n";
  const File journal{1, "j", lines + File{9, "sent", ""}.journal_line(), "", 1400, 1};
  feed(journal.pass());
  EXPECT_EQ("", told("delivered", "path")) << "other files have their turn";
  pass_time(1e9);
  EXPECT_EQ("j ", told("delivered", "path"));
  EXPECT_EQ(1U, ledger->match_journal().size());
}
