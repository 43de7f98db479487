#include "receiver/ledger_file.h"

#include <sys/stat.h>

#include <cstdio>
#include <optional>

namespace {

constexpr int kSchema = 1;

// Ids are stored as signed: printf('%016X', id) shows them as the rest does.
// A sender's journal knows the low halves only, hence transfers_by_journal.
constexpr char kCreate[] = R"(
BEGIN IMMEDIATE;
CREATE TABLE IF NOT EXISTS transfers(
  id INTEGER PRIMARY KEY, send_time INTEGER NOT NULL, path_crc INTEGER NOT NULL,
  file_kind INTEGER NOT NULL, udata_size INTEGER NOT NULL, size INTEGER NOT NULL,
  name NOT NULL, folder NOT NULL, source NOT NULL,
  first_packet REAL NOT NULL, last_packet REAL NOT NULL,
  parts INTEGER NOT NULL, received INTEGER NOT NULL, repeated INTEGER NOT NULL,
  differing INTEGER NOT NULL, received_per_pass TEXT NOT NULL, repeated_per_pass TEXT NOT NULL,
  missing TEXT NOT NULL, outcome TEXT NOT NULL, why NOT NULL, delivered_to NOT NULL);
CREATE INDEX IF NOT EXISTS transfers_by_time ON transfers(first_packet);
CREATE INDEX IF NOT EXISTS transfers_by_outcome ON transfers(outcome, first_packet);
CREATE INDEX IF NOT EXISTS transfers_by_journal
  ON transfers(id & 4294967295, send_time & 4294967295, path_crc);
CREATE TABLE IF NOT EXISTS journal(
  place INTEGER PRIMARY KEY, sent INTEGER NOT NULL, id_low INTEGER NOT NULL,
  crc INTEGER NOT NULL, path NOT NULL, UNIQUE(sent, id_low, crc, path));
PRAGMA user_version = 1;
COMMIT)";
static_assert(kSchema == 1, "user_version above");

/// "", or why this version can't use the file; `schema` is 0 for a new one.
std::string check_schema(sqlite3* db, int& schema) {
  const std::optional<int> version = number_of(db, "PRAGMA user_version");
  const std::optional<int> tables = number_of(db, "SELECT count(*) FROM sqlite_master");
  const std::optional<int> ours =
      number_of(db, "SELECT count(*) FROM sqlite_master WHERE name IN ('transfers', 'journal')");
  if (!version || !tables || !ours) return error_of(db);
  schema = *version;
  if (schema == 0 ? *tables > 0 : *ours != 2) return "it is another program's database";
  if (schema > kSchema) {
    return "it was written by a newer version (schema " + std::to_string(schema) +
           ", this version knows " + std::to_string(kSchema) + ")";
  }
  return "";
}

/// "", or why the file can't be written. Creates the tables of a new one.
std::string make_ready(sqlite3* db) {
  int schema = 0;
  std::string error = check_schema(db, schema);
  if (!error.empty()) return error;
  if (sqlite3_db_readonly(db, "main") != 0) return "it can't be written to";
  // with WAL a commit needs no sync, and reports read while the receiver writes
  for (const char* sql : {"PRAGMA journal_mode = WAL", "PRAGMA synchronous = NORMAL",
                          schema == 0 ? kCreate : "SELECT 1"}) {
    if (sqlite3_exec(db, sql, nullptr, nullptr, nullptr) != SQLITE_OK) return error_of(db);
  }
  return "";
}

/// "./" keeps SQLite from taking ":memory:" and the like for something else.
std::string file_name(const std::string& path) { return path[0] == '/' ? path : "./" + path; }

/// Such a connection needs no files beside the ledger, but sees no later change.
Db open_unchanging(const std::string& path) {
  std::string uri = "file:";
  for (const char c : file_name(path)) {
    char escape[4] = "";
    (void)std::snprintf(escape, sizeof escape, "%%%02X", static_cast<unsigned char>(c));
    uri += c == '/' ? "/" : escape;
  }
  return open_db(uri + "?immutable=1", SQLITE_OPEN_READONLY | SQLITE_OPEN_URI);
}

bool has_bytes(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 && info.st_size > 0;
}

}  // namespace

Db open_ledger_file(const std::string& path, std::string& error) {
  Db db = open_db(file_name(path), SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
  error = make_ready(db.get());
  return db;
}

Db open_ledger_file_to_read(const std::string& path, std::string& error) {
  int schema = 0;
  Db db = open_db(file_name(path), SQLITE_OPEN_READONLY);
  error = check_schema(db.get(), schema);
  if (!error.empty() && has_bytes(path) && !has_bytes(path + "-wal")) {
    // no one writes, and SQLite may not put its files beside the ledger
    db = open_unchanging(path);
    error = check_schema(db.get(), schema);
  }
  if (error.empty() && schema == 0) error = "it holds no ledger";
  return db;
}
