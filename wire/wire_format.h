// wire/wire_format.h: the bytes on the wire, for both ends. docs/wire-format.md
// describes the same in prose.
//
// Three kinds of datagram open with the same 20-byte header. A reader tells
// them apart in this order: `transfer_id` all ones is a service packet;
// `part_no` 0 is a header packet; anything else is a data packet. Integers are
// little-endian and unaligned: written by put_le(), read by get_le().
#pragma once

#include <endian.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

// Header of every datagram.
constexpr std::size_t kTransferIdAt = 0;  ///< uint64: one value per transfer
constexpr std::size_t kPartNoAt = 8;      ///< uint64: 0, or 1..N in data packets
constexpr std::size_t kDataLenAt = 16;    ///< uint32: bytes that follow the header
constexpr std::size_t kHeaderSize = 20;

// Header packet: header, file_info, names area.
constexpr std::size_t kFileSizeAt = 20;   ///< int64: bytes
constexpr std::size_t kReservedAt = 28;   ///< uint64: all ones
constexpr std::size_t kUdataSizeAt = 36;  ///< uint32: datagram size limit of the transfer
constexpr std::size_t kPathCrcAt = 40;    ///< uint32: CRC-32/JAMCRC of the sender's path
constexpr std::size_t kSendTimeAt = 44;   ///< int64: seconds since 1970
constexpr std::size_t kFileKindAt = 52;   ///< uint16: kKindFile and below
constexpr std::size_t kSpareAt = 54;      ///< 30 bytes of 0
constexpr std::size_t kSpareSize = 30;
constexpr std::size_t kFileInfoSize = 64;
constexpr std::size_t kNamesAt = 84;  ///< NUL-terminated: name, [folder], empty

static_assert(kFileSizeAt == kHeaderSize);
static_assert(kSpareAt + kSpareSize == kNamesAt);
static_assert(kNamesAt == kHeaderSize + kFileInfoSize);

constexpr std::uint16_t kKindFile = 0;          ///< found by a folder walk
constexpr std::uint16_t kKindTrashJournal = 1;  ///< the sender's trash journal
constexpr std::uint16_t kKindSeal = 2;          ///< the seal of another transfer

// Service packet: header with kServiceId, then two counters.
constexpr std::uint64_t kServiceId = 0xFFFFFFFFFFFFFFFF;
constexpr std::size_t kAllSendCntAt = 20;  ///< uint64: datagrams of the process
constexpr std::size_t kSendCntAt = 28;     ///< uint64: datagrams of the scan folder
constexpr std::size_t kServicePacketSize = 36;

/// Code page of the names.
constexpr char SND_CP[] = "cp1251";

/// Limits of `udata_size`; the upper one is the largest UDP payload in IPv4:
/// 65,535 less 20 (RFC 791) and 8 bytes (RFC 768) of headers.
constexpr std::uint32_t kMinUdataSize = 1400;
constexpr std::uint32_t kMaxUdataSize = 65507;

/// File bytes in every data packet but the last.
constexpr std::uint32_t part_size(std::uint32_t udata_size) {
  return udata_size - static_cast<std::uint32_t>(kHeaderSize);
}

/// Data packets of a file of `file_size` bytes; 0 for an empty file.
constexpr std::uint64_t part_count(std::uint64_t file_size, std::uint32_t udata_size) {
  const std::uint32_t part = part_size(udata_size);
  return file_size / part + (file_size % part != 0 ? 1 : 0);
}

/// `v` with its bytes in the order of the wire, or back.
inline std::uint16_t wire_order(std::uint16_t v) { return htole16(v); }
inline std::uint32_t wire_order(std::uint32_t v) { return htole32(v); }
inline std::uint64_t wire_order(std::uint64_t v) { return htole64(v); }

/// Writes an unsigned `v` at `p`, lowest byte first; returns the byte behind it.
template <typename T>
unsigned char* put_le(unsigned char* p, T v) {
  static_assert(std::is_unsigned_v<T>, "cast a signed value where it is used");
  v = wire_order(v);
  std::memcpy(p, &v, sizeof v);  // one store; compilers leave a loop of bytes a loop
  return p + sizeof v;
}

/// Reads an unsigned T whose lowest byte is at `p`.
template <typename T>
T get_le(const unsigned char* p) {
  static_assert(std::is_unsigned_v<T>, "cast where it is used");
  T v = 0;
  std::memcpy(&v, p, sizeof v);
  return wire_order(v);
}

/// Writes the header of a datagram at `p`; returns the byte behind it.
inline unsigned char* put_header(unsigned char* p, std::uint64_t transfer_id, std::uint64_t part_no,
                                 std::uint32_t data_len) {
  put_le(p + kTransferIdAt, transfer_id);
  put_le(p + kPartNoAt, part_no);
  return put_le(p + kDataLenAt, data_len);
}
