#include "receiver/ledger.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "receiver/utf8.h"

namespace {

constexpr int kSchema = 1;
constexpr int kBusyWait = 2000;  // ms; only a second writer makes us wait

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

// save() and read_record() follow this order.
#define COLUMNS                                                                  \
  "id, send_time, path_crc, file_kind, udata_size, size, name, folder, source, " \
  "first_packet, last_packet, parts, received, repeated, differing, "            \
  "received_per_pass, repeated_per_pass, missing, outcome, why, delivered_to"

constexpr char kSave[] =
    "REPLACE INTO transfers(" COLUMNS ") VALUES(?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)";
constexpr char kFind[] = "SELECT " COLUMNS " FROM transfers WHERE id = ?";
constexpr char kAll[] = "SELECT " COLUMNS " FROM transfers ORDER BY first_packet, id";
constexpr char kByOutcome[] =
    "SELECT " COLUMNS " FROM transfers WHERE outcome = ? ORDER BY first_packet, id";
constexpr char kAddEntry[] =
    "INSERT INTO journal(sent, id_low, crc, path) VALUES(?,?,?,?) "
    "ON CONFLICT(sent, id_low, crc, path) DO NOTHING";
// The "+" takes the columns' type away: an index over expressions, which have
// none, is not used otherwise. path_crc alone would not do, a path is sent often.
constexpr char kMatch[] = "SELECT place, sent, id_low, crc, path, " COLUMNS
                          " FROM journal LEFT JOIN transfers ON id & 4294967295 = +id_low"
                          " AND send_time & 4294967295 = +sent AND path_crc = crc ORDER BY place";

constexpr std::pair<Outcome, const char*> kOutcomes[] = {{Outcome::kReceiving, "receiving"},
                                                         {Outcome::kDelivered, "delivered"},
                                                         {Outcome::kIncomplete, "incomplete"},
                                                         {Outcome::kRefused, "refused"}};

struct DbCloser {
  void operator()(sqlite3* db) const { sqlite3_close_v2(db); }
};
using Db = std::unique_ptr<sqlite3, DbCloser>;

struct StatementCloser {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, StatementCloser>;

Statement prepare(sqlite3* db, const char* sql) {
  sqlite3_stmt* statement = nullptr;
  (void)sqlite3_prepare_v3(db, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
  return Statement(statement);  // null on failure
}

/// One run of a kept statement. Reset at its end: an unfinished read would hold
/// back the writer's checkpoints. What is bound outlives the run.
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
  void put_bytes(const std::string& value) {
    if (value.find('\0') == std::string::npos && is_utf8(value)) {
      sqlite3_bind_text64(statement_, ++bound_, value.data(), value.size(), SQLITE_STATIC,
                          SQLITE_UTF8);
    } else {
      sqlite3_bind_blob64(statement_, ++bound_, value.data(), value.size(), SQLITE_STATIC);
    }
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
  std::string take_bytes() {
    const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement_, column_));
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_, column_++));
    return bytes == nullptr ? std::string() : std::string(bytes, size);
  }

 private:
  sqlite3_stmt* statement_;
  int bound_ = 0;
  int column_ = 0;
};

std::string list_text(const std::vector<std::uint64_t>& numbers) {
  std::string text;
  for (const std::uint64_t number : numbers) {
    if (!text.empty()) text += ',';
    text += std::to_string(number);
  }
  return text;
}

std::vector<std::uint64_t> read_list(const std::string& text) {
  std::vector<std::uint64_t> numbers;
  const char* at = text.c_str();
  while (*at != '\0') {
    char* end = nullptr;
    const std::uint64_t number = std::strtoull(at, &end, 10);
    if (end == at) break;  // written by somebody else
    numbers.push_back(number);
    at = *end == ',' ? end + 1 : end;
  }
  return numbers;
}

Outcome read_outcome(const std::string& text) {
  for (const auto& [outcome, name] : kOutcomes) {
    if (text == name) return outcome;
  }
  return Outcome::kIncomplete;  // written by somebody else: never taken for delivered
}

TransferRecord read_record(Run& run) {
  TransferRecord record;
  run.take_number(record.id);
  run.take_number(record.send_time);
  run.take_number(record.path_crc);
  run.take_number(record.file_kind);
  run.take_number(record.udata_size);
  run.take_number(record.size);
  record.name = run.take_bytes();
  record.folder = run.take_bytes();
  record.source = run.take_bytes();
  run.take_real(record.first_packet);
  run.take_real(record.last_packet);
  run.take_number(record.parts);
  run.take_number(record.received);
  run.take_number(record.repeated);
  run.take_number(record.differing);
  record.received_per_pass = read_list(run.take_bytes());
  record.repeated_per_pass = read_list(run.take_bytes());
  record.missing = run.take_bytes();
  record.outcome = read_outcome(run.take_bytes());
  record.why = run.take_bytes();
  record.delivered_to = run.take_bytes();
  return record;
}

class SqliteLedger : public Ledger {
 public:
  SqliteLedger(Db db, std::string path) : db_(std::move(db)), path_(std::move(path)) {}

  /// False if the file lacks our tables, or can't be read.
  bool prepare_all() {
    const std::pair<Statement*, const char*> statements[] = {
        {&save_, kSave},          {&find_, kFind},  {&all_, kAll}, {&by_outcome_, kByOutcome},
        {&add_entry_, kAddEntry}, {&match_, kMatch}};
    for (const auto& [statement, sql] : statements) {
      *statement = prepare(db_.get(), sql);
      if (!*statement) return false;
    }
    return true;
  }

  const char* last_error() const { return sqlite3_errmsg(db_.get()); }

  std::string save(const TransferRecord& record) override {
    const std::string received = list_text(record.received_per_pass);
    const std::string repeated = list_text(record.repeated_per_pass);
    const std::string outcome = outcome_name(record.outcome);
    Run run(save_);
    run.put_number(record.id);
    run.put_number(record.send_time);
    run.put_number(record.path_crc);
    run.put_number(record.file_kind);
    run.put_number(record.udata_size);
    run.put_number(record.size);
    run.put_bytes(record.name);
    run.put_bytes(record.folder);
    run.put_bytes(record.source);
    run.put_real(record.first_packet);
    run.put_real(record.last_packet);
    run.put_number(record.parts);
    run.put_number(record.received);
    run.put_number(record.repeated);
    run.put_number(record.differing);
    run.put_bytes(received);
    run.put_bytes(repeated);
    run.put_bytes(record.missing);
    run.put_bytes(outcome);
    run.put_bytes(record.why);
    run.put_bytes(record.delivered_to);
    return run.step() == SQLITE_DONE ? "" : write_error();
  }

  void begin() override {
    if (!in_transaction_) in_transaction_ = execute("BEGIN IMMEDIATE");
  }

  std::string commit() override {
    if (!std::exchange(in_transaction_, false)) return "";  // each was saved by itself
    if (sqlite3_get_autocommit(db_.get()) != 0) {           // a full disk rolls back at once
      return text_of_failure("the last records are lost");
    }
    if (execute("COMMIT")) return "";
    std::string error = write_error();
    (void)execute("ROLLBACK");  // fails where COMMIT did that already
    return error;
  }

  std::optional<TransferRecord> find(std::uint64_t id) override {
    Run run(find_);
    run.put_number(id);
    if (!next(run)) return {};
    return read_record(run);
  }

  std::vector<TransferRecord> all(std::optional<Outcome> outcome) override {
    const std::string name = outcome ? outcome_name(*outcome) : "";
    std::vector<TransferRecord> records;
    Run run(outcome ? by_outcome_ : all_);
    if (outcome) run.put_bytes(name);
    while (next(run)) records.push_back(read_record(run));
    return records;
  }

  std::string add_journal(const std::vector<JournalEntry>& entries) override {
    // a savepoint is a transaction of its own, or part of the one begun
    if (!execute("SAVEPOINT journal")) return write_error();
    for (const JournalEntry& entry : entries) {
      std::string error = add_entry(entry);
      if (error.empty()) continue;
      (void)execute("ROLLBACK TO journal");  // fails where a full disk did that already
      (void)execute("RELEASE journal");
      return error;
    }
    if (execute("RELEASE journal")) return "";
    std::string error = write_error();
    (void)execute("ROLLBACK TO journal");
    (void)execute("RELEASE journal");
    return error;
  }

  std::vector<JournalMatch> match_journal() override {
    std::vector<JournalMatch> matches;
    std::int64_t last_place = -1;
    Run run(match_);
    while (next(run)) {
      std::int64_t place = 0;
      JournalMatch match;
      run.take_number(place);
      run.take_number(match.entry.send_time);
      run.take_number(match.entry.id_low);
      run.take_number(match.entry.path_crc);
      match.entry.path = run.take_bytes();
      if (!run.at_null()) match.transfer = read_record(run);
      if (place != last_place) {
        matches.push_back(std::move(match));
      } else if (match.transfer->outcome == Outcome::kDelivered) {
        matches.back() = std::move(match);
      }
      last_place = place;
    }
    return matches;
  }

  std::string read_error() const override { return read_error_; }

 private:
  std::string text_of_failure(const std::string& what) const {
    return "Can't write to ledger " + path_ + ": " + what;
  }
  std::string write_error() const { return text_of_failure(last_error()); }

  bool execute(const char* sql) {
    return sqlite3_exec(db_.get(), sql, nullptr, nullptr, nullptr) == SQLITE_OK;
  }

  bool next(Run& run) {
    const int result = run.step();
    if (result != SQLITE_ROW && result != SQLITE_DONE) {
      read_error_ = "Can't read ledger " + path_ + ": " + last_error();
    }
    return result == SQLITE_ROW;
  }

  std::string add_entry(const JournalEntry& entry) {
    Run run(add_entry_);
    run.put_number(entry.send_time);
    run.put_number(entry.id_low);
    run.put_number(entry.path_crc);
    run.put_bytes(entry.path);
    return run.step() == SQLITE_DONE ? "" : write_error();
  }

  Db db_;  // before the statements: closed after them
  std::string path_;
  std::string read_error_;
  bool in_transaction_ = false;
  Statement save_;
  Statement find_;
  Statement all_;
  Statement by_outcome_;
  Statement add_entry_;
  Statement match_;
};

/// A connection; broken ones have an error code.
Db connect(const std::string& name, int flags) {
  sqlite3* db = nullptr;
  (void)sqlite3_open_v2(name.c_str(), &db, flags, nullptr);
  if (db != nullptr) sqlite3_busy_timeout(db, kBusyWait);
  return Db(db);
}

/// The first number that `sql` gives; none on failure.
std::optional<int> number_of(sqlite3* db, const char* sql) {
  const Statement statement = prepare(db, sql);
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

/// "", or why this version can't use the file; `schema` is 0 for a new one.
std::string check_schema(sqlite3* db, int& schema) {
  const std::optional<int> version = number_of(db, "PRAGMA user_version");
  const std::optional<int> tables = number_of(db, "SELECT count(*) FROM sqlite_master");
  if (!version || !tables) return error_of(db);
  schema = *version;
  if (schema == 0 && *tables > 0) return "it is another program's database";
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
Db connect_to_unchanging(const std::string& path) {
  std::string uri = "file:";
  for (const char c : file_name(path)) {
    char escape[4] = "";
    (void)std::snprintf(escape, sizeof escape, "%%%02X", static_cast<unsigned char>(c));
    uri += c == '/' ? "/" : escape;
  }
  return connect(uri + "?immutable=1", SQLITE_OPEN_READONLY | SQLITE_OPEN_URI);
}

bool has_bytes(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 && info.st_size > 0;
}

std::unique_ptr<Ledger> start(Db db, const std::string& path, std::string& error) {
  auto ledger = std::make_unique<SqliteLedger>(std::move(db), path);
  if (error.empty() && !ledger->prepare_all()) error = ledger->last_error();
  if (error.empty()) return ledger;
  error = "Can't open ledger " + path + ": " + error;
  return nullptr;
}

}  // namespace

const char* outcome_name(Outcome outcome) {
  return kOutcomes[static_cast<std::size_t>(outcome)].second;
}

std::unique_ptr<Ledger> Ledger::open(const std::string& path, std::string& error) {
  Db db = connect(file_name(path), SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
  error = make_ready(db.get());
  return start(std::move(db), path, error);
}

std::unique_ptr<Ledger> Ledger::open_to_read(const std::string& path, std::string& error) {
  int schema = 0;
  Db db = connect(file_name(path), SQLITE_OPEN_READONLY);
  error = check_schema(db.get(), schema);
  if (!error.empty() && has_bytes(path) && !has_bytes(path + "-wal")) {
    // no one writes, and SQLite may not put its files beside the ledger
    db = connect_to_unchanging(path);
    error = check_schema(db.get(), schema);
  }
  if (error.empty() && schema == 0) error = "it holds no ledger";
  return start(std::move(db), path, error);
}
