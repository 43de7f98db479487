// receiver/ledger/ledger.h: what came, when and how completely, in an SQLite file that
// survives restarts and a kill at any moment.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "receiver/base/record.h"
#include "receiver/ledger/ledger_file.h"
#include "receiver/ledger/sqlite.h"

/// What a delivered file came from: the sender's address (0: not known) and the CRC of its
/// path there.
struct Origin {
  std::uint32_t address = 0;
  std::uint32_t path_crc = 0;
};
inline bool operator==(const Origin& a, const Origin& b) {
  return a.address == b.address && a.path_crc == b.path_crc;
}

/// How many transfers were turned away, by reason.
using Refusals = std::map<std::string, std::uint64_t>;

class Ledger {
 public:
  ~Ledger() = default;
  Ledger(const Ledger&) = delete;
  Ledger(Ledger&&) = delete;
  Ledger& operator=(const Ledger&) = delete;

  /// Opens or creates the file. While another process writes to it, what needs to write
  /// fails at once. On failure null, and `error` is a text for the user.
  /// Links on the way to the file's folder are followed as open_folder() does.
  static std::unique_ptr<Ledger> open(const std::string& path, std::string& error);
  static std::unique_ptr<Ledger> open(LedgerPlace place, std::string& error);

  /// Opens a file that is there, for reading only, while a receiver writes to it
  /// or where nothing may be written. Failure as with open().
  static std::unique_ptr<Ledger> open_to_read(const std::string& path, std::string& error);

  /// Writes the record anew, in the place of one of the same key and header packet. "" or a text
  /// for the user on failure (a full disk): the run goes on without the record.
  std::string save(const TransferRecord& record);

  /// Between begin() and commit() many records share one transaction. If
  /// commit() returns a text, none of them is kept.
  void begin();
  std::string commit();

  /// The record of the transfer that `announced` begins: of the same key, and of a header
  /// packet that said the same. None, too, where the ledger can't be read: see
  /// read_error().
  std::optional<TransferRecord> find(const TransferRecord& announced);

  /// Returns the origin of the last file that was delivered to `lies_at` (below the receiving
  /// folder); nothing if there is no record of one, or the ledger can't be read.
  std::optional<Origin> owner_of(const std::string& lies_at);

  /// Returns where the last file from `origin` that asked for the path `asked_for` was
  /// delivered to, both below the receiving folder; "" if there is no record of one, or the
  /// ledger can't be read.
  std::string place_of(const std::string& asked_for, const Origin& origin);

  /// True if a transfer of this id, send time and path CRC was delivered, from whatever
  /// source. False, too, where the ledger can't be read.
  bool was_delivered(std::uint64_t id, std::int64_t send_time, std::uint32_t path_crc);

  /// Returns the records with this outcome, or all records without one, oldest first. Some are
  /// missing if the ledger can't be read: see read_error().
  std::vector<TransferRecord> all(std::optional<Outcome> outcome);

  /// Adds the entries that are not there yet: later journals extend earlier ones.
  std::string add_journal(const std::vector<JournalEntry>& entries);

  /// Every journal entry with its transfer, in the journal's order. They match
  /// when low id half, send time (low 32 bits), path CRC and, where both are known, the
  /// sender's address are equal; of several transfers a delivered one counts.
  std::vector<JournalMatch> match_journal();

  /// Adds to what was turned away before, at the time `real` (since 1970, s). "" or a text
  /// for the user; then nothing, or a part in the order of the reasons, may be added.
  std::string count_refusals(const Refusals& refusals, double real);

  /// All that was turned away, with a record or without.
  Refusals refusals();

  /// Deletes up to `most` records whose last packet came before `before` (since 1970, s),
  /// but those of files on their way, and up to `most` journal entries sent before it.
  /// Returns how many went; nothing if the ledger can't be written.
  std::optional<std::uint64_t> prune(double before, std::uint64_t most);

  /// Checks whether the file was deleted, replaced or damaged by somebody else. If so, sets
  /// aside the file that has its name ("NAME.damaged-TIME") and makes the ledger anew with all
  /// that can still be read. Opens it again where SQLite can't get a lock that it holds itself.
  /// Returns "", or what happened, for the user. Not between begin() and
  /// commit(). A page in the middle is found damaged only once something reads it.
  /// After a failure the next calls do nothing, thirty of them: a copy takes its time.
  std::string mend();

  /// Returns "", or why a call above returned fewer records than there are (a damaged file).
  /// Once set, it is never reset.
  std::string read_error() const { return read_error_; }

  /// The open folder that it is written in; -1 when it is only read.
  int folder() const { return place_.folder.get(); }

 private:
  explicit Ledger(LedgerPlace place) : place_(std::move(place)) {}
  Ledger& operator=(Ledger&&) = default;  // for mend()
  bool is_here(const struct stat& opened) const;
  LedgerPlace place_beside(const char* suffix) const;
  bool move_in(const std::string& from, const std::string& to) const;
  std::string open_again();
  bool write_copy(bool& copied, std::string& error);
  std::string set_aside(const std::string& aside) const;
  void note_damage();
  static std::unique_ptr<Ledger> start(Db db, LedgerPlace place, std::string& error);
  bool prepare_all();
  std::string add_entry(const JournalEntry& entry);
  bool execute(const char* sql);
  bool next(Run& run);
  std::string text_of_failure(const std::string& what) const;
  std::string write_error();

  LedgerPlace place_;
  Db db_;  ///< behind its folder and before the statements: closed between them
  std::string read_error_;
  bool in_transaction_ = false;
  int calls_to_skip_ = 0;  ///< of mend()
  bool damaged_ = false;   ///< SQLite said so
  bool stuck_ = false;     ///< SQLite keeps a lock that the system did not give back
  struct stat opened_ {};  ///< the file that was opened
  Statement save_;
  Statement find_;
  Statement delivered_;
  Statement all_;
  Statement by_outcome_;
  Statement owner_;
  Statement placed_;
  Statement add_entry_;
  Statement match_;
  Statement count_refusal_;
  Statement refusals_;
  Statement prune_transfers_;
  Statement prune_journal_;
};
