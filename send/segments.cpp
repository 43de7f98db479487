#include "send/segments.h"

#include <netinet/udp.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "send/socket.h"

namespace {

bool usable = std::getenv("TARNWICK_PLAIN_SENDS") == nullptr;

/// True if `err` means that segments can't be used: a datagram would have to be
/// fragmented, the card computes no checksums, or the kernel is too old. Any send may
/// fail like this, since routes change.
bool is_refusal(int err) {
  return err == EINVAL || err == EMSGSIZE || err == EIO || err == ENOPROTOOPT;
}

}  // namespace

bool segments_are_usable() { return usable; }

std::optional<ssize_t> send_segments(const unsigned char* bytes, std::size_t size,
                                     std::uint16_t segment, const sockaddr_in& to) {
  iovec payload{const_cast<unsigned char*>(bytes), size};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof segment)] = {};
  msghdr message{};
  message.msg_name = const_cast<sockaddr_in*>(&to);
  message.msg_namelen = sizeof to;
  message.msg_iov = &payload;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  cmsghdr* const option = CMSG_FIRSTHDR(&message);
  option->cmsg_level = SOL_UDP;
  option->cmsg_type = UDP_SEGMENT;
  option->cmsg_len = CMSG_LEN(sizeof segment);
  std::memcpy(CMSG_DATA(option), &segment, sizeof segment);
  const ssize_t sent = sendmsg(sock, &message, 0);
  if (sent >= 0 || !is_refusal(errno)) return sent;
  usable = false;
  return std::nullopt;
}
