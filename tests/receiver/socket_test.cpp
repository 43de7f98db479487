// The socket's buffer and what the kernel drops; and which datagrams a sender sends.
#include "receiver/take/socket.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <functional>
#include <string>

#include "receiver/take/datagram.h"

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
  const auto send_some = [&](std::size_t count) {
    for (; count > 0; --count) {
      EXPECT_EQ(1400, sendto(sender.get(), datagram.data(), 1400, 0, address, length));
    }
  };
  std::size_t got = 0, sent = 0;
  for (const std::size_t count : {500U, 300U}) {
    send_some(count);
    for (std::size_t n = 1; n > 0; got += n) n = socket_here.receive().size();
    send_some(1);  // brings the count of those before it
    for (std::size_t n = 1; n > 0; got += n) n = socket_here.receive().size();
    sent += count + 1;
    EXPECT_LT(got, sent);
    EXPECT_EQ(sent - got, socket_here.kernel_drops());
  }
}

/// A datagram whose bytes are those of a valid one but for a change.
struct Wire {
  static std::string le(std::uint64_t value, unsigned bytes) {
    std::string text;
    for (; bytes > 0; --bytes, value >>= 8) text += static_cast<char>(value & 0xFF);
    return text;
  }
  std::string text() const { return le(id, 8) + le(part_no, 8) + le(body.size() + more, 4) + body; }
  std::uint64_t id = 7, part_no = 0, more = 0;
  std::string body;
};

const char* kind_of(const Wire& wire) {
  const std::string text = wire.text();
  constexpr const char* kKinds[] = {"none", "header", "part", "service"};
  return kKinds[parse_datagram(reinterpret_cast<const unsigned char*>(text.data()), text.size())
                    .index()];
}

TEST(Datagrams, AreTakenOnlyIfASenderSendsThem) {
  const auto header = [](std::uint64_t size, std::uint64_t reserved, std::uint32_t udata,
                         std::uint32_t kind, const std::string& names) {
    Wire wire;
    wire.body = Wire::le(size, 8) + Wire::le(reserved, 8) + Wire::le(udata, 4) + Wire::le(1, 4) +
                Wire::le(9, 8) + Wire::le(kind, 2) + std::string(30, '\0') + names;
    return wire;
  };
  const std::string plain("f\0\0", 3), nested("f\0d\0\0", 5), sealed("s\0/\0r\0\0", 7);
  const std::uint64_t all = ~0ULL, most = INT64_MAX;
  const struct {
    const char* what;
    Wire wire;
    const char* kind;
  } rows[] = {
      {"a name", header(5, all, 1400, 0, plain), "header"},
      {"a folder", header(most, all, 65507, 1, nested), "header"},
      {"a seal", header(0, all, 1400, 2, sealed), "header"},
      {"no seal without a record", header(5, all, 1400, 2, nested), "none"},
      {"no record of a file", header(5, all, 1400, 0, sealed), "none"},
      {"too large", header(most + 1, all, 1400, 0, plain), "none"},
      {"a field that is reserved", header(5, all - 1, 1400, 0, plain), "none"},
      {"too small parts", header(5, all, 1399, 0, plain), "none"},
      {"too large parts", header(5, all, 65508, 0, plain), "none"},
      {"no end of the names", header(5, all, 1400, 0, std::string("f\0", 2)), "none"},
      {"no end of a name", header(5, all, 1400, 0, "f"), "none"},
      {"text behind", header(5, all, 1400, 0, plain + "x"), "none"},
      {"text behind a folder", header(5, all, 1400, 0, nested + std::string(1, '\0')), "none"},
      {"a part", {7, 1, 0, "x"}, "part"},
      {"a part of nothing", {7, 1, 0, ""}, "none"},
      {"a length that is not its own", {7, 1, 1, "x"}, "none"},
      {"service", {all, 0, 0, std::string(16, 'x')}, "service"},
      {"short service", {all, 0, 0, std::string(15, 'x')}, "none"},
      {"long service", {all, 0, 0, std::string(17, 'x')}, "none"},
      {"a short header", {7, 0, 0, std::string(63, 'x')}, "none"},
  };
  for (const auto& row : rows) EXPECT_STREQ(row.kind, kind_of(row.wire)) << row.what;
  const std::string part = Wire{7, 1, 0, "x"}.text();
  for (std::size_t size = 0; size < part.size(); ++size) {
    const std::string cut = part.substr(0, size);
    EXPECT_EQ(0U, parse_datagram(reinterpret_cast<const unsigned char*>(cut.data()), size).index());
  }
}

}  // namespace
