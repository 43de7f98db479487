// The socket's buffer and what the kernel drops.
#include "receiver/take/socket.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <string>

static int granted_buffer;  // bytes as the kernel tells them; 0: what it grants

int setsockopt(int fd, int level, int name, const void* value, socklen_t size) noexcept {
  if (granted_buffer != 0 && level == SOL_SOCKET && name == SO_RCVBUFFORCE) return -1;
  if (granted_buffer != 0 && level == SOL_SOCKET && name == SO_RCVBUF) return 0;
  return static_cast<int>(syscall(SYS_setsockopt, fd, level, name, value, size));
}

int getsockopt(int fd, int level, int name, void* value, socklen_t* size) noexcept {
  if (granted_buffer != 0 && level == SOL_SOCKET && name == SO_RCVBUF)
    return *static_cast<int*>(value) = granted_buffer, 0;
  return static_cast<int>(syscall(SYS_getsockopt, fd, level, name, value, size));
}

namespace {

TEST(Socket, WarnsOfASmallBufferAndCountsWhatItDropped) {
  sockaddr_in at{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
  auto* const address = reinterpret_cast<sockaddr*>(&at);
  socklen_t length = sizeof at;
  granted_buffer = 512 << 20;
  EXPECT_EQ("", UdpSocket(at).warning());
  granted_buffer = 425'984;
  UdpSocket socket_here(at);
  EXPECT_EQ(
      "the receive buffer is 212992 bytes instead of 268435456, so bursts may be lost: "
      "sysctl -w net.core.rmem_max=268435456",
      socket_here.warning());
  granted_buffer = 0;
  const int small = 8192;
  ASSERT_EQ(0, setsockopt(socket_here.fd(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small));
  ASSERT_EQ(0, getsockname(socket_here.fd(), address, &length));
  EXPECT_NE("", UdpSocket(at).error()) << "the port is taken";
  const Fd sender(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const std::string datagram(1400, 'x');
  std::size_t got = 0, sent = 0;
  for (const std::size_t burst : {500U, 1U, 300U, 1U}) {  // one brings the count of those before
    for (std::size_t i = 0; i < burst; ++i, ++sent)
      EXPECT_EQ(1400, sendto(sender.get(), datagram.data(), 1400, 0, address, length));
    for (std::size_t n = 1; n > 0; got += n) n = socket_here.receive().size();
    EXPECT_LT(got, sent);
    if (burst > 1) continue;
    EXPECT_EQ(sent - got, socket_here.kernel_drops());
  }
}

}  // namespace
