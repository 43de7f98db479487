// receiver/take/datagram.h: reads one datagram, which may hold any bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <variant>

/// Announces a file. The names are as they came, in the wire's code page.
struct HeaderPacket {
  std::uint64_t id = 0;
  std::uint64_t size = 0;        ///< bytes
  std::uint32_t udata_size = 0;  ///< 1400..65507
  std::uint32_t path_crc = 0;
  std::int64_t send_time = 0;  ///< seconds since 1970
  std::uint16_t file_kind = 0;
  std::string name;    ///< may be empty
  std::string folder;  ///< may be empty, may begin with "/"
  std::string record;  ///< of a seal only, what it says of the sealed transfer
};

/// A piece of a file; `data` points into the datagram.
struct DataPacket {
  std::uint64_t id = 0;
  std::uint64_t part_no = 0;  ///< 1 and up
  const unsigned char* data = nullptr;
  std::size_t len = 0;  ///< 1..65487
};

/// The sender's counters.
struct ServicePacket {
  std::uint64_t all_send_cnt = 0;
  std::uint64_t send_cnt = 0;
};

using Datagram = std::variant<std::monostate, HeaderPacket, DataPacket, ServicePacket>;

/// Returns the packet in the `size` bytes at `bytes`; std::monostate if no sender
/// would send them. Reads nothing beyond `size`.
Datagram parse_datagram(const unsigned char* bytes, std::size_t size);
