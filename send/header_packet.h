// send/header_packet.h: the datagram that announces a file.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

/// What a header packet says of a transfer, beside the names.
struct file_info {
  std::uint64_t transfer_id = 0;
  std::int64_t file_size = 0;  ///< bytes
  int path_crc = 0;            ///< crc32_str() of the local path
  std::time_t send_time = 0;   ///< when the transfer was prepared, s since 1970
  unsigned short file_kind = 0;
};

/// The folder path at the receiver: `dst_dir`, then "/" and `sub` when `sub` is
/// not empty.
std::string destination_path(const std::string& dst_dir, const std::string& sub);

/// The finished datagram for the file `path` (its part behind the last "/" is
/// the name) under the folder `pth` (empty: no folder in the packet). It is as
/// long as the names make it: sending a too long one fails.
std::vector<unsigned char> build_header_packet(const file_info& info, const std::string& path,
                                               const std::string& pth);

/// The finished datagram whose names area holds `strings` as they stand. None should be
/// empty: a reader takes it for the end of the list.
std::vector<unsigned char> build_header_packet(const file_info& info,
                                               const std::vector<std::string>& strings);
