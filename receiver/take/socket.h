// receiver/take/socket.h: the UDP socket, read in batches.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ground/owners.h"

/// Bytes of a receive buffer; more than any datagram or joined ones.
constexpr std::size_t kMessageRoom = 65536;

/// Datagrams that came together from one sender (the kernel joins them, UDP_GRO).
struct Message {
  const unsigned char* bytes = nullptr;
  std::size_t size = 0;     ///< of all of them; 0: one empty datagram
  std::size_t segment = 0;  ///< of each but the last, which may be shorter; not 0
  sockaddr_in from{};
};

class UdpSocket {
 public:
  /// Opens and binds it. On failure error() tells; warning() tells of a receive
  /// buffer smaller than wanted.
  explicit UdpSocket(const sockaddr_in& at);

  /// Receives what is sent to the multicast group, too (IP_ADD_MEMBERSHIP, ip(7)), and of
  /// groups only those that it was told. On failure error() tells.
  void join(const ip_mreqn& group);

  const std::string& error() const { return error_; }
  const std::string& warning() const { return warning_; }

  /// Takes what waits, up to one batch, in order of arrival; empty when nothing does.
  /// Never blocks. The bytes stay until the next call.
  const std::vector<Message>& receive();

  /// Hands over the buffer of the `i`-th message received last, whose bytes stay where
  /// they are, and takes `spare`, of kMessageRoom bytes, in its place.
  std::unique_ptr<unsigned char[]> hand_over(std::size_t i, std::unique_ptr<unsigned char[]> spare);

  /// Bytes that wait in the kernel's buffer, with what the kernel adds to each datagram
  /// (SK_MEMINFO_RMEM_ALLOC, sock_diag(7)); the largest number if it does not tell.
  std::uint64_t waiting() const;

  /// True while what waits leaves much of that buffer free: the next call of receive() may
  /// come some milliseconds later.
  bool is_roomy() const { return waiting() < roomy_below_; }

  /// The descriptor to wait on with poll(2).
  int fd() const { return fd_.get(); }

  /// How often the kernel dropped a datagram, or several that it had joined
  /// (UDP_GRO), since the socket was opened, because its buffer was full.
  std::uint64_t kernel_drops() const { return drops_; }

 private:
  void enlarge_buffer();
  void find_out_room();
  void read_control(msghdr& message, std::size_t& segment);

  Fd fd_;
  std::string error_;
  std::string warning_;
  std::vector<std::unique_ptr<unsigned char[]>> buffers_;
  std::vector<Message> messages_;  ///< each in the buffer of its number
  std::uint64_t roomy_below_ = 0;  ///< of waiting()
  std::uint64_t drops_ = 0;
  std::uint32_t last_drops_ = 0;  ///< the kernel's counter has 32 bits
};
