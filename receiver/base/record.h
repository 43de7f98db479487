// receiver/base/record.h: what is known about a transfer, and about the files that the
// sender noted in its journal.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "receiver/base/transfer_key.h"

enum class Outcome {
  kReceiving,
  kDelivered,
  kIncomplete,
  kRefused,
  kWaiting  ///< whole, but it can't be delivered at present
};

inline const char* outcome_name(Outcome outcome) {
  constexpr const char* kNames[] = {"receiving", "delivered", "incomplete", "refused", "waiting"};
  return kNames[static_cast<std::size_t>(outcome)];
}

/// One transfer. Times are seconds since 1970, with fractions where double.
struct TransferRecord {
  TransferKey key;
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
  std::string why;             ///< of a refusal, a wait or an incomplete delivery
  std::string delivered_to;    ///< path on this side
  std::string asked_for;       ///< path below the receiving folder that the header asked for
  std::string lies_at;         ///< path below it that it got, or will get; "" for a journal
  bool collided = false;       ///< numbered: its name was taken by a file of another path
  std::uint64_t repaired = 0;  ///< how many received parts were rebuilt from the seal's
  std::string seal;            ///< text of the seal's record that is believed; "" without one
  std::string proof;  ///< that every byte is the sender's: "", "digest" or "signed " and a key
};

/// Returns a 64-bit hash of what the transfer's header packet said, to tell different header
/// packets apart. It is no defence against somebody who forges two with the same hash.
/// Ledgers hold it, so it must never change.
std::uint64_t header_print(const TransferRecord& record);

/// One line of a sender's trash journal.
struct JournalEntry {
  std::uint32_t send_time = 0;  ///< low 32 bits
  std::uint32_t id_low = 0;     ///< low half of the transfer id
  std::uint32_t path_crc = 0;
  std::string path;           ///< the sender's, as its bytes are
  std::uint32_t address = 0;  ///< the sender's, IPv4 in host byte order; 0: not known
};

/// A file of a journal, and its transfer here.
struct JournalMatch {
  JournalEntry entry;
  std::optional<TransferRecord> transfer;  ///< empty if the file never arrived
};
