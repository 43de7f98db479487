#include "receiver/take/socket.h"

#include <arpa/inet.h>
#include <linux/sock_diag.h>
#include <netinet/udp.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <limits>
#include <utility>

namespace {

constexpr std::size_t kBatch = 32;  // messages a call
// Bytes; taken only as it fills. The first one holds half a second at 2 GB/s, for when
// the disk holds us up; where memory is short the kernel's own limit (udp_mem, udp(7))
// is below it. The second one is what an operator can be asked for.
constexpr int kForcedBuffer = 1 << 30;
constexpr int kWantedBuffer = 256 << 20;
constexpr std::uint64_t kRoomyBuffer = 64 << 20;  // a thirtieth of a second at 2 GB/s
constexpr std::size_t kControlSize = CMSG_SPACE(sizeof(int)) + CMSG_SPACE(sizeof(std::uint32_t));

struct alignas(cmsghdr) Control {
  std::array<char, kControlSize> bytes;
};

std::string failure(const char* what) { return std::string(what) + ": " + std::strerror(errno); }

}  // namespace

UdpSocket::UdpSocket(const sockaddr_in& at)
    : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
  while (buffers_.size() < kBatch) buffers_.emplace_back(new unsigned char[kMessageRoom]);
  if (!fd_) {
    error_ = failure("socket");
    return;
  }
  enlarge_buffer();
  find_out_room();
  const int on = 1;
  // both may be missing: then datagrams come one by one, and drops go unseen
  (void)setsockopt(fd_.get(), IPPROTO_UDP, UDP_GRO, &on, sizeof on);
  (void)setsockopt(fd_.get(), SOL_SOCKET, SO_RXQ_OVFL, &on, sizeof on);
  if (bind(fd_.get(), reinterpret_cast<const sockaddr*>(&at), sizeof at) != 0) {
    error_ = failure("bind");
  }
}

/// False where the buffer is small or its size is not known: each moment counts there.
void UdpSocket::find_out_room() {
  int granted = 0;
  socklen_t size = sizeof granted;
  if (getsockopt(fd_.get(), SOL_SOCKET, SO_RCVBUF, &granted, &size) != 0) return;
  // what all sockets together may hold is three sixteenths of memory (udp_mem, udp(7)), if
  // nobody set it; a network namespace of our own doesn't show it
  const auto page = static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
  const auto memory = static_cast<std::uint64_t>(sysconf(_SC_PHYS_PAGES)) * page;
  const auto room = std::min(static_cast<std::uint64_t>(granted), memory / 8);
  if (room >= kRoomyBuffer) roomy_below_ = room / 4 * 3;
}

void UdpSocket::join(const ip_mreqn& group) {
  if (!error_.empty()) return;
  const int off = 0;
  (void)setsockopt(fd_.get(), IPPROTO_IP, IP_MULTICAST_ALL, &off, sizeof off);
  if (setsockopt(fd_.get(), IPPROTO_IP, IP_ADD_MEMBERSHIP, &group, sizeof group) == 0) return;
  std::array<char, INET_ADDRSTRLEN> text{};
  inet_ntop(AF_INET, &group.imr_multiaddr, text.data(), text.size());
  error_ = failure((std::string("joining ") + text.data()).c_str());
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

std::uint64_t UdpSocket::waiting() const {
  std::array<std::uint32_t, SK_MEMINFO_VARS> memory{};
  socklen_t size = sizeof memory;
  if (getsockopt(fd_.get(), SOL_SOCKET, SO_MEMINFO, memory.data(), &size) != 0) {
    return std::numeric_limits<std::uint64_t>::max();
  }
  return memory[SK_MEMINFO_RMEM_ALLOC];
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

const std::vector<Message>& UdpSocket::receive() {
  std::array<mmsghdr, kBatch> messages{};
  std::array<iovec, kBatch> buffers{};
  std::array<sockaddr_in, kBatch> senders{};
  std::array<Control, kBatch> control;
  for (std::size_t i = 0; i < kBatch; ++i) {
    buffers[i] = {buffers_[i].get(), kMessageRoom};
    msghdr& m = messages[i].msg_hdr;
    m.msg_iov = &buffers[i];
    m.msg_iovlen = 1;
    m.msg_name = &senders[i];
    m.msg_namelen = sizeof senders[i];
    m.msg_control = control[i].bytes.data();
    m.msg_controllen = control[i].bytes.size();
  }
  const int got = recvmmsg(fd_.get(), messages.data(), kBatch, MSG_DONTWAIT, nullptr);
  messages_.clear();
  for (std::size_t i = 0; i < static_cast<std::size_t>(std::max(got, 0)); ++i) {
    const std::size_t size = messages[i].msg_len;
    std::size_t segment = std::max<std::size_t>(size, 1);
    read_control(messages[i].msg_hdr, segment);
    messages_.push_back(
        {static_cast<const unsigned char*>(buffers[i].iov_base), size, segment, senders[i]});
  }
  return messages_;
}

std::unique_ptr<unsigned char[]> UdpSocket::hand_over(std::size_t i,
                                                      std::unique_ptr<unsigned char[]> spare) {
  return std::exchange(buffers_[i], std::move(spare));
}
