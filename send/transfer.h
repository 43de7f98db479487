// send/transfer.h: one file on its way, pass after pass.
#pragma once

#include <netinet/in.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "send/header_packet.h"
#include "send/part_buffer.h"
#include "send/source_file.h"

// Results of a pass and of SendFile().
constexpr int kSent = 0;         ///< all of it went out
constexpr int kNotSent = -1;     ///< stays for a later pass of the scan
constexpr int kEscape = 2;       ///< the escape key was pressed during the data
constexpr int kSocketError = 3;  ///< a send failed or was short

/// What stays the same over all passes. Keeps references to `path`, `file` and
/// `info`, which must outlive it.
class Transfer {
 public:
  /// Builds the header packet; `pth` is the folder path at the receiver `to`.
  Transfer(const std::string& path, const std::string& pth, const SourceFile& file,
           const sockaddr_in& to, const file_info& info);

  /// Sends `head_send` header packets 10 ms apart and then every data packet, at
  /// the pace set. Ends early on a stop request (kNotSent), a file that yields
  /// too little (kNotSent), a failed send or, at `verboze` 1 and up, the escape
  /// key.
  int send_pass();

 private:
  int send_headers();
  int send_data();
  std::size_t next_batch(std::uint64_t part_no) const;
  int send_parts(std::size_t count);
  int settle_send(ssize_t sent, std::size_t size, std::size_t count);
  ssize_t send(const unsigned char* packet, std::size_t size) const;
  void count_sent();

  const std::string& path_;
  const SourceFile& file_;
  const sockaddr_in to_;
  const file_info& info_;
  const std::vector<unsigned char> header_;
  const std::uint64_t parts_;
  PartBuffer parts_buffer_;
  std::int64_t send_packs_ = 0;
};
