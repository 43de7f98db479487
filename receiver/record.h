// receiver/record.h: what is known of a transfer, and of the files that the sender
// noted in its journal.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

enum class Outcome { kReceiving, kDelivered, kIncomplete, kRefused };

inline const char* outcome_name(Outcome outcome) {
  constexpr const char* kNames[] = {"receiving", "delivered", "incomplete", "refused"};
  return kNames[static_cast<std::size_t>(outcome)];
}

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
  std::string source;            ///< address:port of the first header packet
  double first_packet = 0;       ///< the first header packet
  double last_packet = 0;
  std::uint64_t parts = 0;                       ///< of the whole file
  std::uint64_t received = 0;                    ///< distinct parts
  std::uint64_t repeated = 0;                    ///< parts that had come before
  std::uint64_t differing = 0;                   ///< repeated parts with other bytes
  std::vector<std::uint64_t> received_per_pass;  ///< new parts in pass 1, 2, ...
  std::vector<std::uint64_t> repeated_per_pass;  ///< known parts in pass 1, 2, ...
  std::string missing;  ///< part numbers, "1-5,9"; "" when complete or refused at once
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
