#include "receiver/sqlite.h"

#include <cstring>

#include "receiver/utf8.h"

namespace {

constexpr int kBusyWait = 2000;  // ms; only a second writer makes us wait

}  // namespace

Db open_db(const std::string& name, int flags) {
  sqlite3* db = nullptr;
  (void)sqlite3_open_v2(name.c_str(), &db, flags, nullptr);
  if (db != nullptr) sqlite3_busy_timeout(db, kBusyWait);
  return Db(db);
}

Statement prepare_statement(sqlite3* db, const char* sql) {
  sqlite3_stmt* statement = nullptr;
  (void)sqlite3_prepare_v3(db, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
  return Statement(statement);  // null on failure
}

std::optional<int> number_of(sqlite3* db, const char* sql) {
  const Statement statement = prepare_statement(db, sql);
  if (!statement || sqlite3_step(statement.get()) != SQLITE_ROW) return {};
  return sqlite3_column_int(statement.get(), 0);
}

std::string error_of(sqlite3* db) {
  if (db == nullptr) return "out of memory";
  const int code = sqlite3_errcode(db);
  const bool by_system = code == SQLITE_CANTOPEN || code == SQLITE_IOERR;
  const int cause = by_system ? sqlite3_system_errno(db) : 0;
  return cause != 0 ? std::strerror(cause) : sqlite3_errmsg(db);
}

void Run::put_bytes(const std::string& value) {
  if (value.find('\0') == std::string::npos && is_utf8(value)) {
    sqlite3_bind_text64(statement_, ++bound_, value.data(), value.size(), SQLITE_STATIC,
                        SQLITE_UTF8);
  } else {
    sqlite3_bind_blob64(statement_, ++bound_, value.data(), value.size(), SQLITE_STATIC);
  }
}

std::string Run::take_bytes() {
  const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement_, column_));
  const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_, column_++));
  return bytes == nullptr ? std::string() : std::string(bytes, size);
}
