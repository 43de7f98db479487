#include "receiver/ledger/schema.h"

#include "receiver/base/names.h"
#include "receiver/ledger/columns.h"
#include "receiver/ledger/sqlite.h"
#include "wire/wire_format.h"

namespace {

// Every save makes a new `entry`, so the highest of several is the one saved last. The
// indexes on what was delivered tell what lies under a name, and where the file of a path
// lies. A sender's journal knows the low halves only, hence transfers_by_journal.
constexpr char kTables[] = R"(
CREATE INDEX transfers_by_time ON transfers(first_packet);
CREATE INDEX transfers_by_outcome ON transfers(outcome, first_packet);
CREATE INDEX transfers_by_journal
  ON transfers(id & 4294967295, send_time & 4294967295, path_crc);
CREATE INDEX transfers_by_place ON transfers(lies_at) WHERE outcome = 'delivered';
CREATE INDEX transfers_by_path ON transfers(asked_for, path_crc, address)
  WHERE outcome = 'delivered';
CREATE TABLE journal(
  place INTEGER PRIMARY KEY, sent INTEGER NOT NULL, id_low INTEGER NOT NULL,
  crc INTEGER NOT NULL, path NOT NULL, sender INTEGER NOT NULL,
  UNIQUE(sent, id_low, crc, path, sender));
)";

constexpr char kRefusals[] = R"(
CREATE TABLE refusals(
  why PRIMARY KEY, count INTEGER NOT NULL, first REAL NOT NULL, last REAL NOT NULL);
)";

// An index keeps its name when its table gets another one.
constexpr char kSetAside1[] = R"(
DROP INDEX IF EXISTS transfers_by_time;
DROP INDEX IF EXISTS transfers_by_outcome;
DROP INDEX IF EXISTS transfers_by_journal;
ALTER TABLE transfers RENAME TO transfers_1;
ALTER TABLE journal RENAME TO journal_1;
)";
constexpr char kFinish1[] = R"(
INSERT INTO journal SELECT place, sent, id_low, crc, path, 0 FROM journal_1;
DROP TABLE transfers_1;
DROP TABLE journal_1;
)";

bool run_all(sqlite3* db, const std::string& sql) {
  return sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
}

bool create(sqlite3* db) {
  return run_all(db, "CREATE TABLE transfers(entry INTEGER PRIMARY KEY, " + column_definitions() +
                         ", UNIQUE(id, address, port, header));") &&
         run_all(db, kTables) && run_all(db, kRefusals);
}

/// What schema 1 did not hold: the source as numbers, and where the file lies.
void complete_1(TransferRecord& record) {
  record.key = key_from(record.key.id, record.source);
  if (record.file_kind != kKindFile) return;
  const std::string folder = joined_path(safe_folders(record.folder));
  record.asked_for = folder + safe_name(record.name);
  if (record.outcome != Outcome::kDelivered || record.delivered_to.empty()) return;
  record.lies_at = folder + record.delivered_to.substr(record.delivered_to.rfind('/') + 1);
}

bool copy_1(sqlite3* db) {
  const Statement old = prepare_statement(
      db, ("SELECT " + column_names_of(1) + " FROM transfers_1 ORDER BY last_packet").c_str());
  const Statement save = prepare_statement(
      db,
      ("INSERT INTO transfers(" + column_names() + ") VALUES(" + column_places() + ")").c_str());
  if (!old || !save) return false;
  Run from(old);
  int step = SQLITE_DONE;
  while ((step = from.step()) == SQLITE_ROW) {
    TransferRecord record = take_record(from);
    complete_1(record);
    Run to(save);
    put_record(to, record);
    if (to.step() != SQLITE_DONE) return false;
  }
  return step == SQLITE_DONE;
}

bool migrate(sqlite3* db, int from) {
  if (!run_all(db, "BEGIN IMMEDIATE")) return false;
  const bool moved =
      from == 0   ? create(db)
      : from == 1 ? run_all(db, kSetAside1) && create(db) && copy_1(db) && run_all(db, kFinish1)
                  : run_all(db, kRefusals);
  return moved && run_all(db, "PRAGMA user_version = " + std::to_string(kSchema)) &&
         run_all(db, "COMMIT");
}

}  // namespace

std::string bring_up_to_date(sqlite3* db, int from) {
  if (from == kSchema || migrate(db, from)) return "";
  std::string error = error_of(db);
  (void)run_all(db, "ROLLBACK");  // fails where a full disk did that already
  return error;
}
