// receiver/socket.h: the UDP socket, read in batches.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "receiver/fd.h"

/// What one datagram is handed to; `from` is its sender.
using DatagramTaker = std::function<void(const unsigned char*, std::size_t, const sockaddr_in&)>;

class UdpSocket {
 public:
  /// Opens and binds it. On failure error() tells; warning() tells of a receive
  /// buffer smaller than wanted.
  explicit UdpSocket(const sockaddr_in& at);

  const std::string& error() const { return error_; }
  const std::string& warning() const { return warning_; }

  /// Waits up to `timeout_ms` for datagrams, or a signal.
  void wait(int timeout_ms) const;

  /// Hands over what waits, up to one batch, each datagram by itself even where
  /// the kernel joined several; then calls `batch_end` while their bytes are
  /// still there. Gives how many there were, 0 if none waits.
  std::size_t receive(const DatagramTaker& take, const std::function<void()>& batch_end);

  /// How often the kernel dropped a datagram, or several that it had joined
  /// (UDP_GRO), since the socket was opened, because its buffer was full.
  std::uint64_t kernel_drops() const { return drops_; }

 private:
  void enlarge_buffer();
  void read_control(msghdr& message, std::size_t& segment);

  Fd fd_;
  std::string error_;
  std::string warning_;
  std::vector<unsigned char> bytes_;
  std::uint64_t drops_ = 0;
  std::uint32_t last_drops_ = 0;  ///< the kernel's counter has 32 bits
};
