// The ledger, in real files.
#include "receiver/ledger.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>

struct LedgerTest : testing::Test {
  void TearDown() override { std::filesystem::remove_all(dir); }
  static std::string save(Ledger& to, std::uint64_t id, Outcome outcome, std::size_t missing = 0) {
    TransferRecord record;
    record.id = id, record.first_packet = -static_cast<double>(id), record.outcome = outcome;
    record.missing.assign(missing, '1');
    return to.save(record);
  }
  static std::string ids(Ledger& from, std::optional<Outcome> outcome = {}) {
    std::string found;
    for (const TransferRecord& each : from.all(outcome)) found += std::to_string(each.id) + " ";
    return found;
  }
  std::string error, dir = std::filesystem::temp_directory_path() / "ledger_XXXXXX";
  std::string file = std::string(mkdtemp(dir.data())) + "/ledger";
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
  const bool apart = reader->find(1)->outcome == Outcome::kReceiving && !reader->find(4);
  if (!apart || save(*reader, 3, Outcome::kDelivered).empty()) writer->commit();
  (void)raise(SIGKILL);
}

TEST_F(LedgerTest, TellsOfAFullDiskAndGoesOnAfterIt) {
  const auto ledger = Ledger::open(file, error);
  rlimit limit{};
  const rlimit small{1 << 19, RLIM_INFINITY};
  (void)signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(0, prlimit(0, RLIMIT_FSIZE, &small, &limit));
  const std::string alone = save(*ledger, 1, Outcome::kIncomplete, 1 << 20);
  ledger->begin();
  for (const std::size_t size : {0U, 1U << 20, 1U << 22})
    save(*ledger, size, Outcome::kIncomplete, size);
  EXPECT_TRUE(!alone.empty() && !ledger->commit().empty());
  setrlimit(RLIMIT_FSIZE, &limit);
  EXPECT_EQ("", save(*ledger, 1, Outcome::kIncomplete, 1 << 20));
  EXPECT_EQ("1 ", ids(*ledger));
}

TEST_F(LedgerTest, RefusesWhatItCannotUseAndSaysThatADamagedFileGaveLess) {
  sqlite3* foreign = nullptr;
  sqlite3_open((file + "2").c_str(), &foreign);
  sqlite3_exec(foreign, "CREATE TABLE t(x); PRAGMA user_version = 1", nullptr, nullptr, nullptr);
  sqlite3_close(foreign);
  EXPECT_FALSE(Ledger::open(file + "2", error));
  EXPECT_NE(std::string::npos, error.find("another program's")) << error;
  EXPECT_FALSE(Ledger::open(dir, error) || Ledger::open_to_read(file, error));
  for (const std::uint64_t id : {1U, 2U}) save(*Ledger::open(file, error), id, {}, 1 << 16);
  const auto damage = [&](auto at, const std::string& bytes) {
    std::fstream(file, std::ios::in | std::ios::out).seekp(at) << bytes;
    return Ledger::open_to_read(file, error);
  };
  const auto ledger = damage(1 << 16, std::string(1 << 13, 'x'));
  EXPECT_EQ("2 ", ids(*ledger));
  EXPECT_NE("", ledger->read_error());
  EXPECT_FALSE(damage(60, std::string("\0\0\0\2", 4)) || Ledger::open(file, error));
  EXPECT_NE(std::string::npos, error.find("newer version")) << error;
  EXPECT_FALSE(damage(0, "x") || Ledger::open(file, error));
}
