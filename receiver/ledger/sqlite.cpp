#include "receiver/ledger/sqlite.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>

#include "receiver/base/utf8.h"

namespace {

constexpr std::chrono::milliseconds kBusyWait(10);
constexpr int kMostBusyWaits = 200;  // 2 s; only a second writer makes us wait

constexpr char kInFolder[] = "tarnwick-in-folder";
constexpr int kLongestSleep = 1000;  // us

/// SQLite's own files (https://sqlite.org/vfs.html), but for two things. A path stays as
/// it is: SQLite would resolve "/proc/self/fd/N/NAME" at once to a path that another may
/// exchange; kept, it leads to the folder that is open as N. The last component SQLite
/// opens with O_NOFOLLOW. And sleeps are short: SQLite sleeps for ten seconds in all
/// before it says SQLITE_PROTOCOL.
bool register_in_folder() {
  sqlite3_vfs* const usual = sqlite3_vfs_find(nullptr);
  if (usual == nullptr) return false;
  static sqlite3_vfs vfs;
  vfs = *usual;
  vfs.zName = kInFolder;
  vfs.pNext = nullptr;
  vfs.xFullPathname = [](sqlite3_vfs*, const char* path, int size, char* out) {
    if (std::strlen(path) >= static_cast<std::size_t>(size)) return SQLITE_CANTOPEN;
    sqlite3_snprintf(size, out, "%s", path);
    return SQLITE_OK;
  };
  vfs.xSleep = [](sqlite3_vfs*, int microseconds) {
    const int slept = std::min(microseconds, kLongestSleep);
    std::this_thread::sleep_for(std::chrono::microseconds(slept));
    return slept;
  };
  return sqlite3_vfs_register(&vfs, 0) == SQLITE_OK;
}

/// SQLite's own wait counts on sleeps as long as it asked for.
int wait_while_busy(void*, int waits) {
  if (waits >= kMostBusyWaits) return 0;
  std::this_thread::sleep_for(kBusyWait);
  return 1;
}

Db open_with(const std::string& name, int flags, const char* vfs) {
  sqlite3* db = nullptr;
  (void)sqlite3_open_v2(name.c_str(), &db, flags, vfs);
  if (db != nullptr) sqlite3_busy_handler(db, wait_while_busy, nullptr);
  return Db(db);
}

}  // namespace

Db open_db(const std::string& name, int flags) { return open_with(name, flags, nullptr); }

Db open_db_in(int folder, const std::string& name, int flags) {
  static const bool registered = register_in_folder();
  if (!registered) return nullptr;
  return open_with("/proc/self/fd/" + std::to_string(folder) + "/" + name, flags, kInFolder);
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
