// send/header_packet.h: the datagram that announces a file.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

/// What a header packet tells about a transfer, besides the names.
struct file_info {
  std::uint64_t transfer_id = 0;
  std::int64_t file_size = 0;  ///< bytes
  int path_crc = 0;            ///< crc32_str() of the local path
  std::time_t send_time = 0;   ///< when the transfer was prepared, s since 1970
  unsigned short file_kind = 0;
};

/// Returns the folder path at the receiver: `dst_dir`, then "/" and `sub` when `sub`
/// is not empty.
std::string destination_path(const std::string& dst_dir, const std::string& sub);

/// Returns the finished datagram for the file `path`, whose name is the part behind
/// the last "/", in the folder `pth`; an empty `pth` leaves the folder out of the
/// packet. Its length is not limited; a send of one that is too long fails.
std::vector<unsigned char> build_header_packet(const file_info& info, const std::string& path,
                                               const std::string& pth);

/// Returns the finished datagram whose names area holds `strings` as they are. None of
/// them should be empty, since an empty string marks the end of the list.
std::vector<unsigned char> build_header_packet(const file_info& info,
                                               const std::vector<std::string>& strings);
