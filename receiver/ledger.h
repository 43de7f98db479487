// receiver/ledger.h: what came, when and how completely, in an SQLite file that
// survives restarts and a kill at any moment.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "receiver/record.h"
#include "receiver/sqlite.h"

class Ledger {
 public:
  /// Opens or creates the file. On failure null, and `error` is a text for the user.
  static std::unique_ptr<Ledger> open(const std::string& path, std::string& error);

  /// Opens a file that is there, for reading only, while a receiver writes to it
  /// or where nothing may be written. Failure as with open().
  static std::unique_ptr<Ledger> open_to_read(const std::string& path, std::string& error);

  /// Writes the record anew under its id. "" or a text for the user on failure (a
  /// full disk): the run goes on without the record.
  std::string save(const TransferRecord& record);

  /// Between begin() and commit() many records share one transaction. If
  /// commit() gives a text, none of them is kept.
  void begin();
  std::string commit();

  /// None, too, where the ledger can't be read: see read_error().
  std::optional<TransferRecord> find(std::uint64_t id);

  /// All with this outcome, oldest first; all records without one. Less than all
  /// where the ledger can't be read: see read_error().
  std::vector<TransferRecord> all(std::optional<Outcome> outcome);

  /// Adds the entries that are not there yet: later journals extend earlier ones.
  std::string add_journal(const std::vector<JournalEntry>& entries);

  /// Every journal entry with its transfer, in the journal's order. They match
  /// when low id half, send time (low 32 bits) and path CRC are equal; of several
  /// transfers a delivered one counts.
  std::vector<JournalMatch> match_journal();

  /// "", or why a reading above gave less than there is (a damaged file). It stays.
  std::string read_error() const { return read_error_; }

 private:
  Ledger(Db db, std::string path) : db_(std::move(db)), path_(std::move(path)) {}
  static std::unique_ptr<Ledger> start(Db db, const std::string& path, std::string& error);
  bool prepare_all();
  std::string add_entry(const JournalEntry& entry);
  bool execute(const char* sql);
  bool next(Run& run);
  std::string text_of_failure(const std::string& what) const;
  std::string write_error() const;

  Db db_;  ///< before the statements: closed after them
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
