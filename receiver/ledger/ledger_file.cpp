#include "receiver/ledger/ledger_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <optional>

#include "receiver/base/own_files.h"
#include "receiver/ledger/schema.h"

namespace {

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

/// "", or why the file can't be written. Creates the tables of a new one, and brings
/// those of an older version up to date.
std::string make_ready(sqlite3* db) {
  int schema = 0;
  std::string error = check_schema(db, schema);
  if (!error.empty()) return error;
  if (sqlite3_db_readonly(db, "main") != 0) return "it can't be written to";
  // with WAL a commit needs no sync, and reports read while the receiver writes;
  // temporary files elsewhere could not be written from within the sandbox. A checkpoint
  // syncs three times, so it comes after 64 MiB (16384 pages) and not after 4
  for (const char* sql : {"PRAGMA temp_store = MEMORY", "PRAGMA journal_mode = WAL",
                          "PRAGMA synchronous = NORMAL", "PRAGMA wal_autocheckpoint = 16384"}) {
    if (sqlite3_exec(db, sql, nullptr, nullptr, nullptr) != SQLITE_OK) return error_of(db);
  }
  return bring_up_to_date(db, schema);
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

/// True, too, of what can't be looked at: SQLite will tell why. It would wait for a pipe.
bool is_regular(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) != 0 || S_ISREG(info.st_mode);
}

bool has_bytes(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 && info.st_size > 0;
}

}  // namespace

void finish_mending(const LedgerPlace& place) {
  const int folder = place.folder.get();
  const auto is_missing = [folder](const std::string& name) {
    struct stat info {};
    return fstatat(folder, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0 && errno == ENOENT;
  };
  const auto move = [folder](const std::string& from, const std::string& to) {
    (void)renameat(folder, from.c_str(), folder, to.c_str());  // the next start tries again
  };
  const std::string anew = place.name + kAnew;
  if (!is_missing(place.name) || is_missing(anew) || !is_missing(anew + "-wal")) return;
  // of the damaged one: SQLite would take it for the new one's
  for (const char* beside : {"-wal", "-shm"})
    move(place.name + beside, place.name + ".damaged" + beside);
  move(anew, place.name);
}

Db open_ledger_file(const LedgerPlace& place, std::string& error) {
  finish_mending(place);
  for (const char* beside : {"", "-wal", "-shm", "-journal"}) {
    error = why_not_ours(place.folder.get(), place.name + beside);
    if (!error.empty()) return nullptr;
  }
  Db db = open_db_in(place.folder.get(), place.name, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
  error = make_ready(db.get());
  return db;
}

Db open_ledger_file_to_read(const std::string& path, std::string& error) {
  int schema = 0;
  if (!is_regular(path)) {
    error = "it is no regular file";
    return nullptr;
  }
  Db db = open_db(file_name(path), SQLITE_OPEN_READONLY);
  error = check_schema(db.get(), schema);
  if (!error.empty() && has_bytes(path) && !has_bytes(path + "-wal")) {
    // no one writes, and SQLite may not put its files beside the ledger
    db = open_unchanging(path);
    error = check_schema(db.get(), schema);
  }
  if (error.empty() && schema == 0) error = "it holds no ledger";
  if (error.empty() && schema < kSchema) {
    error = "it is of an older version: the next start of the receiver brings it up to date";
  }
  return db;
}
