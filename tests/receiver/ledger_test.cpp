// The ledger, in real files.
#include "receiver/ledger/ledger.h"

#include <fcntl.h>
#include <sys/wait.h>

#include "tests/receiver/folder.h"

namespace {

struct LedgerTest : InFolder {
  static std::string save(Ledger& to, std::uint64_t id, Outcome outcome, std::size_t missing = 0) {
    TransferRecord record;
    record.key.id = id, record.first_packet = -static_cast<double>(id), record.outcome = outcome;
    record.missing.assign(missing, '1');
    return to.save(record);
  }
  static std::string ids(Ledger& from, std::optional<Outcome> outcome = {}) {
    std::string found;
    for (const TransferRecord& each : from.all(outcome)) found += std::to_string(each.key.id) + " ";
    return found;
  }
  static std::optional<TransferRecord> find(Ledger& in, std::uint64_t id) {
    TransferRecord record;
    record.key.id = id;
    return in.find(record);
  }
  void overwrite(std::streamoff at, const std::string& bytes) const {
    std::fstream(file, std::ios::in | std::ios::out).seekp(at) << bytes;
  }
  const std::string file = root / "ledger";
};

TEST_F(LedgerTest, IsReadWhileItIsWrittenAndKilledLeavesNoHalfTransaction) {
  if (const pid_t child = fork(); child != 0) {
    waitpid(child, nullptr, 0);
    EXPECT_EQ("3 2 1 ", ids(*Ledger::open_to_read(file, error)));
    EXPECT_EQ("3 1 ", ids(*Ledger::open(file, error), Outcome::kReceiving));
    return;
  }
  const auto writer = Ledger::open(file, error), reader = Ledger::open_to_read(file, error);
  for (const std::uint64_t id : {1U, 3U, 2U}) save(*writer, id, Outcome::kReceiving);
  save(*writer, 2, Outcome::kDelivered);
  writer->begin();
  save(*writer, 1, Outcome::kDelivered);
  const bool apart = find(*reader, 1)->outcome == Outcome::kReceiving && !find(*reader, 4);
  if (!apart || save(*reader, 3, Outcome::kDelivered).empty()) writer->commit();
  (void)raise(SIGKILL);
}

TEST_F(LedgerTest, IsReadByThoseWhoMayWriteNothing) {
  save(*Ledger::open(file, error), 1, Outcome::kDelivered);
  const uid_t own = geteuid();
  fs::permissions(file, fs::perms(0444));
  fs::permissions(root, fs::perms(0555));
  ASSERT_EQ(0, seteuid(own == 0 ? 65534 : own));
  const auto reader = Ledger::open_to_read(file, error);
  const std::string writer = Ledger::open(file, error) ? "opened" : error;
  ASSERT_EQ(0, seteuid(own));
  fs::permissions(root, fs::perms(0755));
  ASSERT_TRUE(reader) << error;
  EXPECT_EQ("1 ", ids(*reader));
  EXPECT_NE("opened", writer);
  EXPECT_FALSE(fs::exists(file + "-shm"));
}

TEST_F(LedgerTest, TellsOfAFullDiskAndGoesOnAfterIt) {
  const auto ledger = Ledger::open(file, error);
  {
    const FullDisk full(1 << 19);
    EXPECT_NE("", save(*ledger, 1, Outcome::kIncomplete, 1 << 20));
    ledger->begin();
    for (const std::size_t size : {0U, 1U << 20, 1U << 22})
      save(*ledger, size, Outcome::kIncomplete, size);
    EXPECT_NE("", ledger->commit());
  }
  EXPECT_EQ("", save(*ledger, 1, Outcome::kIncomplete, 1 << 20));
  EXPECT_EQ("1 ", ids(*ledger));
}

TEST_F(LedgerTest, TakesOverTheTablesOfTheFirstSchemaWholeOrNotAtAll) {
  OtherProgram(file).run(contents(TESTS "/first_schema.sql"));
  EXPECT_FALSE(Ledger::open_to_read(file, error));
  {
    const FullDisk full(1 << 16);
    EXPECT_FALSE(Ledger::open(file, error));
  }
  EXPECT_TRUE(Ledger::open(file, error)) << error;
  // the second schema lacked this table
  OtherProgram(file).run("DROP TABLE refusals; PRAGMA user_version = 2");
  const auto ledger = Ledger::open(file, error);
  ASSERT_TRUE(ledger) << error;
  EXPECT_EQ(5002U, ledger->all({}).size());
  EXPECT_EQ(0U, ledger->refusals().size());
  EXPECT_EQ("", ledger->read_error());
  const TransferRecord one = ledger->all(Outcome::kDelivered).at(0);
  const Origin origin{0x01020304, 204};
  EXPECT_EQ("FFFFFFFFFFFFFFFF-01020304-0063", key_text(one.key));
  EXPECT_EQ("a/%2E%2E/b/n", one.asked_for);
  EXPECT_EQ("a/%2E%2E/b/n (1)", one.lies_at);
  EXPECT_EQ((std::vector<std::uint64_t>{0, 2}), one.repeated_per_pass);
  EXPECT_TRUE(ledger->find(one));
  EXPECT_TRUE(ledger->owner_of(one.lies_at) == origin);
  EXPECT_EQ(one.lies_at, ledger->place_of(one.asked_for, origin));
  EXPECT_TRUE((ledger->all(Outcome::kReceiving).at(0).key == TransferKey{7}));
  for (const std::string path : {"p", "q"}) {  // p was there, of any sender
    for (const std::uint32_t sender : {origin.address, 5U})
      EXPECT_EQ("", ledger->add_journal({{9, UINT32_MAX, 204, path, sender}}));
  }
  const auto matches = ledger->match_journal();
  ASSERT_EQ(3U, matches.size());
  EXPECT_EQ("p", matches[0].entry.path);
  EXPECT_TRUE(matches[0].transfer);
  EXPECT_TRUE(matches[1].transfer);
  EXPECT_FALSE(matches[2].transfer) << "of another sender";
}

TEST_F(LedgerTest, RefusesWhatItCannotUseAndSaysThatADamagedFileGaveLess) {
  const auto refusal = [&](const std::string& path) {
    return Ledger::open(path, error) ? "" : error;
  };
  OtherProgram(file + "2").run("CREATE TABLE t(x); PRAGMA user_version = 1");
  EXPECT_NE(std::string::npos, refusal(file + "2").find("another program's")) << error;
  EXPECT_NE("", refusal(root));
  EXPECT_FALSE(Ledger::open_to_read(file, error));
  EXPECT_EQ("Can't open ledger " + file + ": No such file or directory", error);
  for (const std::uint64_t id : {1U, 2U}) save(*Ledger::open(file, error), id, {}, 1 << 16);
  overwrite(1 << 16, std::string(1 << 13, 'x'));
  const auto ledger = Ledger::open_to_read(file, error);
  EXPECT_EQ("2 ", ids(*ledger));
  EXPECT_NE("", ledger->read_error());
  overwrite(60, std::string("\0\0\0\x63", 4));
  EXPECT_FALSE(Ledger::open_to_read(file, error));
  EXPECT_NE(std::string::npos, refusal(file).find("newer version")) << error;
  overwrite(0, "x");
  EXPECT_FALSE(Ledger::open_to_read(file, error));
  EXPECT_NE("", refusal(file));
}

TEST_F(LedgerTest, IsMadeAnewWithWhatIsKnownWhenItWasDeletedReplacedOrDamaged) {
  const auto ledger = Ledger::open(file, error);
  for (std::uint64_t id = 1; id <= 300; ++id) save(*ledger, id, Outcome::kDelivered, 1 << 12);
  EXPECT_EQ("", ledger->count_refusals({{"a", 1}, {"b", 2}}, 1));
  EXPECT_EQ("", ledger->count_refusals({{"a", 3}}, 2));
  EXPECT_EQ("", ledger->add_journal({{9, 1, 2, "p", 0}}));
  EXPECT_EQ("", ledger->mend());
  const auto holds_all = [&](const char* what) {
    EXPECT_NE(std::string::npos, ledger->mend().find("made anew; it holds 300 records")) << what;
    EXPECT_EQ("", ledger->mend()) << what;
    EXPECT_EQ("", save(*ledger, 300, Outcome::kDelivered));
    const auto reader = Ledger::open_to_read(file, error);
    ASSERT_TRUE(reader) << what << error;
    EXPECT_EQ(300U, reader->all({}).size()) << what;
    EXPECT_EQ((Refusals{{"a", 4}, {"b", 2}}), reader->refusals()) << what;
    EXPECT_EQ(1U, reader->match_journal().size()) << what;
  };
  const auto empty_log = [&] { OtherProgram(file).run("PRAGMA wal_checkpoint(TRUNCATE)"); };
  fs::remove(file), std::ofstream(file + ".anew") << "half of one: a run was killed";
  holds_all("deleted");
  for (const char* beside : {"", "-wal", "-shm"}) fs::remove(file + beside);
  holds_all("deleted with all beside it");
  std::ofstream(file + "2") << "no ledger";
  fs::rename(file + "2", file);
  holds_all("replaced");
  empty_log();
  overwrite(1 << 18, std::string(1 << 15, 'x'));
  EXPECT_EQ("", ledger->mend()) << "nobody has read it";
  for (std::uint64_t id = 1; id <= 300; ++id) find(*ledger, id);
  EXPECT_NE(std::string::npos, ledger->mend().find("is damaged and was made anew"));
  EXPECT_LT(250U, ledger->all({}).size());
  EXPECT_EQ("", ledger->read_error());
  empty_log();
  fs::copy(file, file + "3.anew");  // as after a kill when the damaged one was set aside
  std::ofstream(file + "3-wal") << "of the damaged one";
  EXPECT_LT(250U, Ledger::open(file + "3", error)->all({}).size()) << error;
  EXPECT_EQ("of the damaged one", contents(file + "3.damaged-wal"));
  std::ofstream(file + "4.anew-wal"), fs::copy(file, file + "4.anew");
  EXPECT_EQ(0U, Ledger::open(file + "4", error)->all({}).size()) << "is not whole";
  fs::resize_file(file, 0);
  fs::create_directory(file + ".anew");
  EXPECT_NE(std::string::npos, ledger->mend().find("can't be made anew"));
  fs::remove(file + ".anew");
  for (int call = 0; call < 30; ++call) EXPECT_EQ("", ledger->mend()) << "not each time";
  EXPECT_NE(std::string::npos, ledger->mend().find("is damaged and was made anew"));
  EXPECT_EQ("", save(*ledger, 1, Outcome::kDelivered));
  EXPECT_TRUE(find(*Ledger::open_to_read(file, error), 1));
}

struct flock refused_unlock {};

int refuse_one_unlock(int fd, int command, void* what) {
  auto* const lock = static_cast<struct flock*>(what);
  const bool is_unlock = command == F_SETLK && lock->l_type == F_UNLCK;
  if (is_unlock && refused_unlock.l_len != 0 && lock->l_start == refused_unlock.l_start) {
    refused_unlock.l_len = 0;
    errno = EIO;
    return -1;
  }
  return fcntl(fd, command, what);
}

TEST_F(LedgerTest, IsOpenedAgainWhenTheSystemKeptALock) {
  sqlite3_vfs* const vfs = sqlite3_vfs_find(nullptr);
  vfs->xSetSystemCall(vfs, "fcntl", reinterpret_cast<sqlite3_syscall_ptr>(refuse_one_unlock));
  const auto ledger = Ledger::open(file, error);
  EXPECT_EQ("", save(*ledger, 1, Outcome::kDelivered));
  refused_unlock.l_start = 124;  // WAL_READ_LOCK(1): https://sqlite.org/walformat.html
  refused_unlock.l_len = 1;
  find(*ledger, 1);
  EXPECT_NE("", save(*ledger, 2, Outcome::kDelivered));
  EXPECT_EQ(0, refused_unlock.l_len);
  EXPECT_NE(std::string::npos, ledger->mend().find("was opened again"));
  EXPECT_EQ("", save(*ledger, 2, Outcome::kDelivered));
  EXPECT_EQ("2 1 ", ids(*Ledger::open_to_read(file, error)));
  EXPECT_EQ("", ledger->mend());
  vfs->xSetSystemCall(vfs, "fcntl", nullptr);
}

}  // namespace
