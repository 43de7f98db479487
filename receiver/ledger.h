// receiver/ledger.h: what came, when and how completely, in an SQLite file that
// survives restarts and a kill at any moment.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

enum class Outcome { kReceiving, kDelivered, kIncomplete, kRefused };

/// "receiving", "delivered", "incomplete", "refused".
const char* outcome_name(Outcome outcome);

/// One transfer. Times are seconds since 1970, with fractions where double.
struct TransferRecord {
  std::uint64_t id = 0;
  std::int64_t send_time = 0;    ///< as the sender wrote it
  std::uint32_t path_crc = 0;    ///< of the sender's path
  std::uint16_t file_kind = 0;   ///< 0 file, 1 trash journal
  std::uint32_t udata_size = 0;  ///< datagram size limit of the sender
  std::uint64_t size = 0;        ///< bytes
  std::string name;              ///< converted; "%XX" for bytes that have no character here
  std::string folder;            ///< converted; "%XX" for bytes that have no character here
  std::string source;            ///< address:port of the first packet
  double first_packet = 0;
  double last_packet = 0;
  std::uint64_t parts = 0;                       ///< of the whole file
  std::uint64_t received = 0;                    ///< distinct parts
  std::uint64_t repeated = 0;                    ///< parts that had come before
  std::uint64_t differing = 0;                   ///< repeated parts with other bytes
  std::vector<std::uint64_t> received_per_pass;  ///< new parts in pass 1, 2, ...
  std::vector<std::uint64_t> repeated_per_pass;  ///< known parts in pass 1, 2, ...
  std::string missing;                           ///< part numbers, "1-5,9"; "" when complete
  Outcome outcome = Outcome::kReceiving;
  std::string why;           ///< of a refusal or an incomplete delivery
  std::string delivered_to;  ///< path on this side
};

/// One line of a sender's trash journal.
struct JournalEntry {
  std::uint32_t send_time = 0;  ///< low 32 bits
  std::uint32_t id_low = 0;     ///< low half of the transfer id
  std::uint32_t path_crc = 0;
  std::string path;  ///< the sender's, as its bytes are
};

/// A file of a journal and what became of it here.
struct JournalMatch {
  JournalEntry entry;
  std::optional<TransferRecord> transfer;  ///< none: lost whole
};

class Ledger {
 public:
  /// Opens or creates the file. On failure null, and `error` is a text for the user.
  static std::unique_ptr<Ledger> open(const std::string& path, std::string& error);

  /// Opens a file that is there for reading only, while a receiver writes to it
  /// or where nothing may be written. Failure as with open().
  static std::unique_ptr<Ledger> open_to_read(const std::string& path, std::string& error);

  virtual ~Ledger() = default;

  /// Writes the record anew under its id. "" or a text for the user on failure (a
  /// full disk): the run goes on without the record.
  virtual std::string save(const TransferRecord& record) = 0;

  /// Between begin() and commit() many records share one transaction. If
  /// commit() gives a text, none of them is kept.
  virtual void begin() = 0;
  virtual std::string commit() = 0;

  virtual std::optional<TransferRecord> find(std::uint64_t id) = 0;

  /// All with this outcome, oldest first; all records without one.
  virtual std::vector<TransferRecord> all(std::optional<Outcome> outcome) = 0;

  /// Adds the entries that are not there yet: later journals extend earlier ones.
  virtual std::string add_journal(const std::vector<JournalEntry>& entries) = 0;

  /// Every journal entry with its transfer, in the journal's order. They match
  /// when low id half, send time (low 32 bits) and path CRC are equal; of several
  /// transfers a delivered one counts.
  virtual std::vector<JournalMatch> match_journal() = 0;

  /// "", or why a reading above gave less than there is (a damaged file).
  virtual std::string read_error() const { return ""; }
};
