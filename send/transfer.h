// send/transfer.h: sends one transfer, pass after pass.
#pragma once

#include <netinet/in.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "send/content.h"
#include "send/header_packet.h"
#include "send/part_buffer.h"

// Results of a pass and of SendFile().
constexpr int kSent = 0;         ///< all of it went out
constexpr int kNotSent = -1;     ///< the file stays for a later pass of the scan
constexpr int kEscape = 2;       ///< the escape key was pressed during the data
constexpr int kSocketError = 3;  ///< a send failed or was short

/// Pause after each header packet.
constexpr std::uint32_t kAfterHeaderUs = 10'000;

/// A transfer, which lives for all its passes. Keeps a reference to `content`, which
/// must outlive it.
class Transfer {
 public:
  /// `header` is the header packet for `info`, `to` the receiver.
  Transfer(std::vector<unsigned char> header, Content& content, const sockaddr_in& to,
           const file_info& info);

  /// Sends `head_send` header packets 10 ms apart and then every data packet, at the
  /// pace that is set. Returns kSent, or earlier kNotSent after a stop request, the
  /// result of end_short() if the content ends too soon, kSocketError if a send fails,
  /// or kEscape after the escape key (at `verboze` 1 and up).
  int send_pass();

 private:
  int send_headers();
  int send_data();
  std::size_t next_batch() const;
  int send_parts(std::size_t count);
  int settle_send(ssize_t sent, std::size_t size, std::size_t count);
  ssize_t send(const unsigned char* packet, std::size_t size) const;
  void count_sent();

  Content& content_;
  const sockaddr_in to_;
  const std::vector<unsigned char> header_;
  PartBuffer parts_;
  std::int64_t send_packs_ = 0;
};
