// receiver/ledger/sqlite.h: owners for what SQLite's C interface returns.
#pragma once

#include <sqlite3.h>

#include <memory>
#include <optional>
#include <string>

struct DbCloser {
  void operator()(sqlite3* db) const { sqlite3_close_v2(db); }
};
using Db = std::unique_ptr<sqlite3, DbCloser>;

struct StatementCloser {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, StatementCloser>;

/// A connection to the file `name` with the `flags` of sqlite3_open_v2(). A broken
/// one has an error code; it is null if memory ran out.
Db open_db(const std::string& name, int flags);

/// The same of the file `name` in the open `folder`, which must outlive the connection:
/// whatever happens to the path on which the folder was found, the ledger and the files
/// that SQLite puts beside it are opened right there, and none of them through a link.
/// It needs /proc.
Db open_db_in(int folder, const std::string& name, int flags);

/// A statement to be kept and run often; null on failure.
Statement prepare_statement(sqlite3* db, const char* sql);

/// Returns the first number that `sql` selects; none on failure.
std::optional<int> number_of(sqlite3* db, const char* sql);

/// Why the last call on `db` failed, for the user.
std::string error_of(sqlite3* db);

/// One run of a kept statement. Reset at its end: an unfinished read would hold
/// back the writer's checkpoints. What is bound must outlive the run.
class Run {
 public:
  explicit Run(const Statement& statement) : statement_(statement.get()) {}
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;
  ~Run() {
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
  }

  template <typename T>
  void put_number(T value) {
    sqlite3_bind_int64(statement_, ++bound_, static_cast<sqlite3_int64>(value));
  }
  void put_real(double value) { sqlite3_bind_double(statement_, ++bound_, value); }
  /// Any bytes; as TEXT where they are text, so that queries by hand find them.
  void put_bytes(const std::string& value);
  /// Text that need not outlive the run.
  void put_copy(const std::string& text) {
    sqlite3_bind_text64(statement_, ++bound_, text.data(), text.size(), SQLITE_TRANSIENT,
                        SQLITE_UTF8);
  }

  /// SQLITE_ROW, SQLITE_DONE or a failure; the next take_...() is of the first column.
  int step() {
    column_ = 0;
    return sqlite3_step(statement_);
  }
  bool at_null() const { return sqlite3_column_type(statement_, column_) == SQLITE_NULL; }
  template <typename T>
  void take_number(T& value) {
    value = static_cast<T>(sqlite3_column_int64(statement_, column_++));
  }
  void take_real(double& value) { value = sqlite3_column_double(statement_, column_++); }
  std::string take_bytes();
  void skip() { ++column_; }

 private:
  sqlite3_stmt* statement_;
  int bound_ = 0;
  int column_ = 0;
};
