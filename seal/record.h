// seal/record.h: the line of text in a seal that describes the file that was sent.
//
//   const auto record = parse_record(text);
//   if (!record) ...                       // not a valid record
//   if (record->signature && signature_holds(text, *record)) ...
//
// docs/wire-format.md describes the fields. A parsed record takes no more memory
// than its text.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "seal/layout.h"

using ContentHash = std::array<unsigned char, 32>;  ///< BLAKE2b-256
using PublicKey = std::array<unsigned char, 32>;    ///< Ed25519
using Signature = std::array<unsigned char, 64>;    ///< Ed25519

/// What a file is called, as bytes of the sender's file system. A name off the wire may
/// hold any bytes but NUL, so it must be made safe like all other names.
struct TrueName {
  std::string name;    ///< not empty
  std::string folder;  ///< folder path at the receiver; may be empty
};

struct SealRecord {
  std::uint64_t of = 0;  ///< id of the sealed transfer
  std::uint16_t kind = 0;
  std::uint64_t size = 0;   ///< bytes, at most 2^63 - 1
  std::uint32_t udata = 0;  ///< 1400 to 65507
  std::int64_t sent = 0;    ///< seconds since 1970
  std::uint32_t crc = 0;    ///< of the sender's path
  ContentHash b2{};
  std::int64_t mtime_s = 0;    ///< seconds since 1970, rounded down
  std::uint32_t mtime_ns = 0;  ///< 0 to 999,999,999, to be added to them
  std::uint32_t mode = 0;      ///< permission bits, 0 to 0777
  std::optional<TrueName> path;
  std::optional<Code> code;  ///< within CodeLayout::of()'s limits for this size
  std::optional<PublicKey> key;
  std::optional<Signature> signature;  ///< present if `key` is
};

/// Reads a record that came off the wire. Returns nothing unless it has every
/// field, each once, in its order and in its one way of writing.
std::optional<SealRecord> parse_record(std::string_view text);

/// Returns the record's text up to and without " sig=".
std::string unsigned_text(const SealRecord& record);

/// True if the signature in `text`, from which parse_record() made `record`, was made
/// with `record.key`; false if there is no signature. The caller decides whether to trust
/// that key.
bool signature_holds(std::string_view text, const SealRecord& record);

/// Returns how many bytes a record may take in a seal's header packet whose folder has
/// `folder_size` bytes.
std::size_t record_room(std::size_t folder_size);

/// Returns the name of the seal of transfer `of`, as it stands in the names area.
std::string seal_name(std::uint64_t of);

/// Returns the message that is signed: a line that says what is signed, then `text`
/// up to and without " sig=".
std::string signed_message(std::string_view text);

/// Returns " sig=" and the digits of `signature`, which follow unsigned_text().
std::string signature_field(const Signature& signature);
