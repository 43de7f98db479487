#include "receiver/socket.h"

#include <netinet/udp.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace {

constexpr std::size_t kBatch = 32;       // messages a call
constexpr std::size_t kMessage = 65536;  // bytes; more than any datagram or joined ones
// Bytes; taken only as it fills. The first one holds half a second at 2 GB/s, for when
// the disk holds us up; where memory is short the kernel's own limit (udp_mem, udp(7))
// is below it. The second one is what an operator can be asked for.
constexpr int kForcedBuffer = 1 << 30;
constexpr int kWantedBuffer = 256 << 20;
constexpr std::size_t kControlSize = CMSG_SPACE(sizeof(int)) + CMSG_SPACE(sizeof(std::uint32_t));

struct alignas(cmsghdr) Control {
  std::array<char, kControlSize> bytes;
};

std::string failure(const char* what) { return std::string(what) + ": " + std::strerror(errno); }

}  // namespace

UdpSocket::UdpSocket(const sockaddr_in& at)
    : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)),
      bytes_(kBatch * kMessage) {
  if (!fd_) {
    error_ = failure("socket");
    return;
  }
  enlarge_buffer();
  const int on = 1;
  // both may be missing: then datagrams come one by one, and drops go unseen
  (void)setsockopt(fd_.get(), IPPROTO_UDP, UDP_GRO, &on, sizeof on);
  (void)setsockopt(fd_.get(), SOL_SOCKET, SO_RXQ_OVFL, &on, sizeof on);
  if (bind(fd_.get(), reinterpret_cast<const sockaddr*>(&at), sizeof at) != 0) {
    error_ = failure("bind");
  }
}

void UdpSocket::enlarge_buffer() {
  if (setsockopt(fd_.get(), SOL_SOCKET, SO_RCVBUFFORCE, &kForcedBuffer, sizeof kForcedBuffer) ==
      0) {
    return;
  }
  (void)setsockopt(fd_.get(), SOL_SOCKET, SO_RCVBUF, &kWantedBuffer, sizeof kWantedBuffer);
  int granted = 0;
  socklen_t len = sizeof granted;
  (void)getsockopt(fd_.get(), SOL_SOCKET, SO_RCVBUF, &granted, &len);
  if (granted / 2 >= kWantedBuffer) return;  // socket(7): the kernel doubles it
  warning_ =
      "the receive buffer is " + std::to_string(granted / 2) + " bytes instead of " +
      std::to_string(kWantedBuffer) +
      ", so bursts may be lost: sysctl -w net.core.rmem_max=" + std::to_string(kWantedBuffer);
}

void UdpSocket::wait(int timeout_ms) const {
  pollfd ready{fd_.get(), POLLIN, 0};
  (void)poll(&ready, 1, timeout_ms);  // a signal ends it: the caller looks
}

void UdpSocket::read_control(msghdr& message, std::size_t& segment) {
  for (cmsghdr* c = CMSG_FIRSTHDR(&message); c != nullptr; c = CMSG_NXTHDR(&message, c)) {
    if (c->cmsg_level == IPPROTO_UDP && c->cmsg_type == UDP_GRO) {
      int size = 0;
      std::memcpy(&size, CMSG_DATA(c), sizeof size);
      if (size > 0) segment = static_cast<std::size_t>(size);
    } else if (c->cmsg_level == SOL_SOCKET && c->cmsg_type == SO_RXQ_OVFL) {
      std::uint32_t drops = 0;
      std::memcpy(&drops, CMSG_DATA(c), sizeof drops);
      drops_ += static_cast<std::uint32_t>(drops - last_drops_);
      last_drops_ = drops;
    }
  }
}

std::size_t UdpSocket::receive(const DatagramTaker& take, const std::function<void()>& batch_end) {
  std::array<mmsghdr, kBatch> messages{};
  std::array<iovec, kBatch> buffers{};
  std::array<sockaddr_in, kBatch> senders{};
  std::array<Control, kBatch> control;
  for (std::size_t i = 0; i < kBatch; ++i) {
    buffers[i] = {bytes_.data() + i * kMessage, kMessage};
    msghdr& m = messages[i].msg_hdr;
    m.msg_iov = &buffers[i];
    m.msg_iovlen = 1;
    m.msg_name = &senders[i];
    m.msg_namelen = sizeof senders[i];
    m.msg_control = control[i].bytes.data();
    m.msg_controllen = control[i].bytes.size();
  }
  const int got = recvmmsg(fd_.get(), messages.data(), kBatch, MSG_DONTWAIT, nullptr);
  std::size_t count = 0;
  for (std::size_t i = 0; i < static_cast<std::size_t>(std::max(got, 0)); ++i) {
    const std::size_t size = messages[i].msg_len;
    std::size_t segment = std::max<std::size_t>(size, 1);
    read_control(messages[i].msg_hdr, segment);
    const auto* bytes = static_cast<const unsigned char*>(buffers[i].iov_base);
    std::size_t at = 0;
    do {  // an empty datagram is one, too
      take(bytes + at, std::min(segment, size - at), senders[i]);
      at += segment;
      ++count;
    } while (at < size);
  }
  if (count > 0) batch_end();
  return count;
}
