#include "receiver/ledger.h"

#include <cstdlib>

#include "receiver/ledger_file.h"

namespace {

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
  for (const Outcome outcome : {Outcome::kReceiving, Outcome::kDelivered, Outcome::kRefused}) {
    if (text == outcome_name(outcome)) return outcome;
  }
  return Outcome::kIncomplete;  // what somebody else wrote is never taken for delivered
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

}  // namespace

std::unique_ptr<Ledger> Ledger::open(const std::string& path, std::string& error) {
  Db db = open_ledger_file(path, error);
  return start(std::move(db), path, error);
}

std::unique_ptr<Ledger> Ledger::open_to_read(const std::string& path, std::string& error) {
  Db db = open_ledger_file_to_read(path, error);
  return start(std::move(db), path, error);
}

std::unique_ptr<Ledger> Ledger::start(Db db, const std::string& path, std::string& error) {
  std::unique_ptr<Ledger> ledger(new Ledger(std::move(db), path));
  if (error.empty() && !ledger->prepare_all()) error = sqlite3_errmsg(ledger->db_.get());
  if (error.empty()) return ledger;
  error = "Can't open ledger " + path + ": " + error;
  return nullptr;
}

/// False if the file lacks our tables, or can't be read.
bool Ledger::prepare_all() {
  const std::pair<Statement*, const char*> statements[] = {
      {&save_, kSave},          {&find_, kFind},  {&all_, kAll}, {&by_outcome_, kByOutcome},
      {&add_entry_, kAddEntry}, {&match_, kMatch}};
  for (const auto& [statement, sql] : statements) {
    *statement = prepare_statement(db_.get(), sql);
    if (!*statement) return false;
  }
  return true;
}

std::string Ledger::save(const TransferRecord& record) {
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

void Ledger::begin() {
  if (!in_transaction_) in_transaction_ = execute("BEGIN IMMEDIATE");
}

std::string Ledger::commit() {
  if (!std::exchange(in_transaction_, false)) return "";  // each was saved by itself
  if (sqlite3_get_autocommit(db_.get()) != 0) {           // a full disk rolls back at once
    return text_of_failure("the last records are lost");
  }
  if (execute("COMMIT")) return "";
  std::string error = write_error();
  (void)execute("ROLLBACK");  // fails where COMMIT did that already
  return error;
}

std::optional<TransferRecord> Ledger::find(std::uint64_t id) {
  Run run(find_);
  run.put_number(id);
  if (!next(run)) return {};
  return read_record(run);
}

std::vector<TransferRecord> Ledger::all(std::optional<Outcome> outcome) {
  const std::string name = outcome ? outcome_name(*outcome) : "";
  std::vector<TransferRecord> records;
  Run run(outcome ? by_outcome_ : all_);
  if (outcome) run.put_bytes(name);
  while (next(run)) records.push_back(read_record(run));
  return records;
}

std::string Ledger::add_journal(const std::vector<JournalEntry>& entries) {
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

std::vector<JournalMatch> Ledger::match_journal() {
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

std::string Ledger::text_of_failure(const std::string& what) const {
  return "Can't write to ledger " + path_ + ": " + what;
}

std::string Ledger::write_error() const { return text_of_failure(sqlite3_errmsg(db_.get())); }

bool Ledger::execute(const char* sql) {
  return sqlite3_exec(db_.get(), sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

bool Ledger::next(Run& run) {
  const int result = run.step();
  if (result != SQLITE_ROW && result != SQLITE_DONE) {
    read_error_ = "Can't read ledger " + path_ + ": " + sqlite3_errmsg(db_.get());
  }
  return result == SQLITE_ROW;
}

std::string Ledger::add_entry(const JournalEntry& entry) {
  Run run(add_entry_);
  run.put_number(entry.send_time);
  run.put_number(entry.id_low);
  run.put_number(entry.path_crc);
  run.put_bytes(entry.path);
  return run.step() == SQLITE_DONE ? "" : write_error();
}
