// A ledger that was deleted or damaged under the running receiver.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "receiver/ledger/ledger.h"
#include "receiver/ledger/ledger_file.h"

namespace {

constexpr int kSkippedCalls = 30;

/// SQLite's own handle of the ledger's file: to open and close it beside SQLite would drop
/// SQLite's locks (fcntl(2)).
sqlite3_file* file_of(sqlite3* db) {
  sqlite3_file* file = nullptr;
  const int result = sqlite3_file_control(db, "main", SQLITE_FCNTL_FILE_POINTER, &file);
  return result == SQLITE_OK && file != nullptr && file->pMethods != nullptr ? file : nullptr;
}

/// False where the file no longer begins as it must (https://sqlite.org/fileformat.html).
bool begins_well(sqlite3* db) {
  constexpr std::string_view kMagic("SQLite format 3\0", 16);
  std::array<char, kMagic.size()> bytes{};
  sqlite3_file* const file = file_of(db);
  return file == nullptr ||
         (file->pMethods->xRead(file, bytes.data(), static_cast<int>(bytes.size()), 0) ==
              SQLITE_OK &&
          std::string_view(bytes.data(), bytes.size()) == kMagic);
}

/// Copies the rows that can be read, from the front and then from the end, up to the damaged
/// ones. Returns false if that is not all, or if the new ledger can't be written.
bool copy_table(sqlite3* from, sqlite3* to, const std::string& table, const std::string& key) {
  for (const char* order : {"", " DESC"}) {
    std::string select = "SELECT * FROM ";
    select.append(table).append(" ORDER BY ").append(key).append(order);
    const Statement source = prepare_statement(from, select.c_str());
    if (!source) return false;
    const int columns = sqlite3_column_count(source.get());
    std::string insert = "INSERT OR IGNORE INTO ";
    insert.append(table).append(" VALUES(?");
    for (int i = 1; i < columns; ++i) insert += ", ?";
    insert += ")";
    const Statement target = prepare_statement(to, insert.c_str());
    if (!target) return false;
    int step = SQLITE_DONE;
    while ((step = sqlite3_step(source.get())) == SQLITE_ROW) {
      for (int i = 0; i < columns; ++i) {
        sqlite3_bind_value(target.get(), i + 1, sqlite3_column_value(source.get(), i));
      }
      if (sqlite3_step(target.get()) != SQLITE_DONE) return false;
      sqlite3_reset(target.get());
    }
    if (step == SQLITE_DONE) return true;
  }
  return false;
}

}  // namespace

LedgerPlace Ledger::place_beside(const char* suffix) const {
  return {Fd(fcntl(place_.folder.get(), F_DUPFD_CLOEXEC, 0)), place_.name + suffix,
          place_.path + suffix};
}

bool Ledger::move_in(const std::string& from, const std::string& to) const {
  const int folder = place_.folder.get();
  return renameat(folder, from.c_str(), folder, to.c_str()) == 0;
}

/// Writes all that can be read to a new ledger beside this one. It gets the name when it
/// is whole: a kill on the way leaves what is there. `copied` tells whether it is all.
bool Ledger::write_copy(bool& copied, std::string& error) {
  for (const char* beside : {"", "-wal", "-shm"}) {  // of a run that was killed
    unlinkat(place_.folder.get(), (place_.name + kAnew + beside).c_str(), 0);
  }
  std::unique_ptr<Ledger> copy = open(place_beside(kAnew), error);
  if (!copy) return false;
  (void)copy->execute("BEGIN IMMEDIATE");
  const bool all = copy_table(db_.get(), copy->db_.get(), "transfers", "entry") &&
                   copy_table(db_.get(), copy->db_.get(), "journal", "place") &&
                   copy_table(db_.get(), copy->db_.get(), "refusals", "why");
  copied = copy->execute("COMMIT") && all;
  copy.reset();  // which takes its log in
  struct stat log {};
  const std::string name = place_.name + kAnew + "-wal";
  if (fstatat(place_.folder.get(), name.c_str(), &log, AT_SYMLINK_NOFOLLOW) != 0) return true;
  error = "its log could not be taken in";
  return false;
}

bool Ledger::is_here(const struct stat& opened) const {
  struct stat now {};
  return fstatat(place_.folder.get(), place_.name.c_str(), &now, AT_SYMLINK_NOFOLLOW) == 0 &&
         now.st_dev == opened.st_dev && now.st_ino == opened.st_ino;
}

/// Connections of one process share SQLite's locks, so this one is closed first. Its log
/// stays, as at a kill.
std::string Ledger::open_again() {
  LedgerPlace place = place_beside("");
  sqlite3_db_config(db_.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
  *this = Ledger(place_beside(""));
  std::string error;
  if (const std::unique_ptr<Ledger> anew = open(std::move(place), error)) {
    *this = std::move(*anew);
    return place_.path + " kept a lock and was opened again";
  }
  stuck_ = true;
  calls_to_skip_ = kSkippedCalls;
  return error;
}

std::string Ledger::mend() {
  if (calls_to_skip_ > 0) {
    --calls_to_skip_;
    return "";
  }
  if (stuck_) return open_again();
  const bool here = is_here(opened_);
  if (here && !damaged_ && begins_well(db_.get())) return "";
  const std::string what = here ? "is damaged" : "was deleted or replaced";
  std::string error;
  bool copied = false;
  std::unique_ptr<Ledger> anew;
  if (write_copy(copied, error)) {
    error = set_aside(place_.name + ".damaged-" + std::to_string(std::time(nullptr)));
  }
  if (error.empty() && !move_in(place_.name + kAnew, place_.name)) error = std::strerror(errno);
  if (error.empty()) anew = open(place_beside(""), error);
  if (!anew) {
    calls_to_skip_ = kSkippedCalls;
    return place_.path + " " + what + ", and can't be made anew: " + error;
  }
  // else its end would delete the new one's log: SQLite goes by names there
  sqlite3_db_config(db_.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
  const std::optional<int> records = number_of(anew->db_.get(), "SELECT count(*) FROM transfers");
  *this = std::move(*anew);
  return place_.path + " " + what + " and was made anew; it holds " +
         std::to_string(records.value_or(0)) + " records" +
         (copied ? "" : ", not all that were known");
}

/// Moves what has the ledger's name to `aside`: it may be worth a look. SQLite's files
/// beside it must not be taken for those of the new one.
std::string Ledger::set_aside(const std::string& aside) const {
  for (const char* beside : {"", "-wal", "-shm"}) {
    if (!move_in(place_.name + beside, aside + beside) && errno != ENOENT) {
      return std::strerror(errno);
    }
  }
  return "";
}
