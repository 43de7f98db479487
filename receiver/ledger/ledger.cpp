#include "receiver/ledger/ledger.h"

#include <fcntl.h>

#include "receiver/base/own_files.h"
#include "receiver/ledger/columns.h"
#include "receiver/ledger/ledger_file.h"

namespace {

// The "+" takes the columns' type away: an index over expressions, which have
// none, is not used otherwise. path_crc alone would not do, a path is sent often.
constexpr char kMatching[] =
    " FROM journal LEFT JOIN transfers ON id & 4294967295 = +id_low"
    " AND send_time & 4294967295 = +sent AND path_crc = crc"
    " AND (address = sender OR address = 0 OR sender = 0)"
    " ORDER BY place";

// An address that is not known stands for any.
constexpr char kAddEntry[] =
    "INSERT INTO journal(sent, id_low, crc, path, sender) SELECT ?1, ?2, ?3, ?4, ?5"
    " WHERE NOT EXISTS (SELECT 1 FROM journal WHERE sent = ?1 AND id_low = ?2 AND crc = ?3"
    " AND path = ?4 AND (sender = ?5 OR sender = 0 OR ?5 = 0))";

constexpr char kCountRefusal[] =
    "INSERT INTO refusals(why, count, first, last) VALUES(?1, ?2, ?3, ?3)"
    " ON CONFLICT(why) DO UPDATE SET count = count + ?2, last = ?3";

constexpr char kPruneTransfers[] =
    "DELETE FROM transfers WHERE entry IN (SELECT entry FROM transfers"
    " WHERE first_packet < ?1 AND last_packet < ?1 AND outcome NOT IN ('receiving', 'waiting') "
    "LIMIT ?2)";
constexpr char kPruneJournal[] =
    "DELETE FROM journal WHERE place IN (SELECT place FROM journal WHERE sent < ?1 LIMIT ?2)";

}  // namespace

std::unique_ptr<Ledger> Ledger::open(const std::string& path, std::string& error) {
  const SplitPath split = split_path(path);
  return open({open_folder(split.folder, false, error), split.name, path}, error);
}

std::unique_ptr<Ledger> Ledger::open(LedgerPlace place, std::string& error) {
  Db db = place.folder ? open_ledger_file(place, error) : nullptr;
  std::unique_ptr<Ledger> ledger = start(std::move(db), std::move(place), error);
  if (ledger) {
    (void)fstatat(ledger->folder(), ledger->place_.name.c_str(), &ledger->opened_,
                  AT_SYMLINK_NOFOLLOW);
    sqlite3_busy_handler(ledger->db_.get(), nullptr, nullptr);  // from here on nothing waits for it
  }
  return ledger;
}

std::unique_ptr<Ledger> Ledger::open_to_read(const std::string& path, std::string& error) {
  Db db = open_ledger_file_to_read(path, error);
  return start(std::move(db), {Fd(), "", path}, error);
}

std::unique_ptr<Ledger> Ledger::start(Db db, LedgerPlace place, std::string& error) {
  const std::string path = place.path;
  std::unique_ptr<Ledger> ledger(new Ledger(std::move(place)));
  ledger->db_ = std::move(db);
  if (error.empty() && !ledger->prepare_all()) error = sqlite3_errmsg(ledger->db_.get());
  if (error.empty()) return ledger;
  error = "Can't open ledger " + path + ": " + error;
  return nullptr;
}

/// False if the file lacks our tables, or can't be read.
bool Ledger::prepare_all() {
  const std::string columns = column_names();
  const std::string select = "SELECT " + columns + " FROM transfers";
  const std::pair<Statement*, std::string> statements[] = {
      {&save_, "REPLACE INTO transfers(" + columns + ") VALUES(" + column_places() + ")"},
      {&find_, select + " WHERE id = ? AND address = ? AND port = ? AND header = ?"},
      {&delivered_,
       "SELECT 1 FROM transfers WHERE id & 4294967295 = ? AND send_time & 4294967295 = ?"
       " AND path_crc = ? AND id = ? AND outcome = 'delivered' LIMIT 1"},
      {&all_, select + " ORDER BY first_packet, entry"},
      {&by_outcome_, select + " WHERE outcome = ? ORDER BY first_packet, entry"},
      {&owner_,
       "SELECT address, path_crc FROM transfers WHERE lies_at = ?"
       " AND outcome = 'delivered' ORDER BY entry DESC LIMIT 1"},
      {&placed_,
       "SELECT lies_at FROM transfers WHERE asked_for = ? AND path_crc = ?"
       " AND address = ? AND outcome = 'delivered' ORDER BY entry DESC LIMIT 1"},
      {&add_entry_, kAddEntry},
      {&count_refusal_, kCountRefusal},
      {&refusals_, "SELECT why, count FROM refusals ORDER BY count DESC, why"},
      {&prune_transfers_, kPruneTransfers},
      {&prune_journal_, kPruneJournal},
      {&match_, "SELECT place, sent, id_low, crc, path, sender, " + columns + kMatching}};
  for (const auto& [statement, sql] : statements) {
    *statement = prepare_statement(db_.get(), sql.c_str());
    if (!*statement) return false;
  }
  return true;
}

std::string Ledger::save(const TransferRecord& record) {
  Run run(save_);
  put_record(run, record);
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

std::optional<TransferRecord> Ledger::find(const TransferRecord& announced) {
  Run run(find_);
  run.put_number(announced.key.id);
  run.put_number(announced.key.address);
  run.put_number(announced.key.port);
  run.put_number(header_print(announced));
  if (!next(run)) return {};
  return take_record(run);
}

bool Ledger::was_delivered(std::uint64_t id, std::int64_t send_time, std::uint32_t path_crc) {
  Run run(delivered_);
  run.put_number(id & UINT32_MAX);  // as in the index
  run.put_number(send_time & std::int64_t{UINT32_MAX});
  run.put_number(path_crc);
  run.put_number(id);
  return next(run);
}

std::optional<Origin> Ledger::owner_of(const std::string& lies_at) {
  Run run(owner_);
  run.put_bytes(lies_at);
  if (!next(run)) return {};
  Origin origin;
  run.take_number(origin.address);
  run.take_number(origin.path_crc);
  return origin;
}

std::string Ledger::place_of(const std::string& asked_for, const Origin& origin) {
  Run run(placed_);
  run.put_bytes(asked_for);
  run.put_number(origin.path_crc);
  run.put_number(origin.address);
  return next(run) ? run.take_bytes() : "";
}

std::vector<TransferRecord> Ledger::all(std::optional<Outcome> outcome) {
  const std::string name = outcome ? outcome_name(*outcome) : "";
  std::vector<TransferRecord> records;
  Run run(outcome ? by_outcome_ : all_);
  if (outcome) run.put_bytes(name);
  while (next(run)) records.push_back(take_record(run));
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
    run.take_number(match.entry.address);
    if (!run.at_null()) match.transfer = take_record(run);
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
  return "Can't write to ledger " + place_.path + ": " + what;
}

std::string Ledger::write_error() {
  note_damage();
  return text_of_failure(sqlite3_errmsg(db_.get()));
}

void Ledger::note_damage() {
  const int code = sqlite3_extended_errcode(db_.get());
  const int kind = code & 0xFF;
  stuck_ = stuck_ || kind == SQLITE_PROTOCOL;
  damaged_ = damaged_ || kind == SQLITE_CORRUPT || kind == SQLITE_NOTADB ||
             code == SQLITE_IOERR_SHORT_READ || code == SQLITE_READONLY_DBMOVED;
}

bool Ledger::execute(const char* sql) {
  return sqlite3_exec(db_.get(), sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

bool Ledger::next(Run& run) {
  const int result = run.step();
  if (result != SQLITE_ROW && result != SQLITE_DONE) {
    note_damage();
    read_error_ = "Can't read ledger " + place_.path + ": " + sqlite3_errmsg(db_.get());
  }
  return result == SQLITE_ROW;
}

std::string Ledger::add_entry(const JournalEntry& entry) {
  Run run(add_entry_);
  run.put_number(entry.send_time);
  run.put_number(entry.id_low);
  run.put_number(entry.path_crc);
  run.put_bytes(entry.path);
  run.put_number(entry.address);
  return run.step() == SQLITE_DONE ? "" : write_error();
}
