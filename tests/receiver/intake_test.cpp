// Datagrams in memory: their order, their bound and what goes when it is reached; and the
// socket's buffer, and what the kernel drops.
#include "receiver/take/intake.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/udp.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>

#include <cstring>
#include <string>

using namespace std::chrono_literals;

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

constexpr std::size_t kSize = 1000;
const std::size_t kCost = Taken{nullptr, kSize, kSize, {}, {}, {}}.cost();

Taken piece(std::uint64_t id) {
  return {std::make_unique<unsigned char[]>(kSize), kSize, kSize, {id, 0, 0}, {}, {}};
}

/// The ids that wait, in order; their memory stays in use.
std::string pop_ids(Backlog& backlog, std::size_t bytes = 1 << 20) {
  std::string ids;
  for (const Taken& taken : backlog.pop(bytes)) ids += std::to_string(taken.key.id) + " ";
  return ids;
}

TEST(Backlog, DropsWholeTransfersThoseThatBeganLastFirst) {
  Backlog backlog(6 * kCost);
  for (const std::uint64_t id : {1U, 2U, 1U, 3U, 2U, 3U}) backlog.push(piece(id));
  EXPECT_EQ(0U, backlog.dropped_datagrams());
  backlog.push(piece(1));  // one too many: 3 goes, all of it
  EXPECT_EQ(2U, backlog.dropped_datagrams());
  backlog.push(piece(3));  // is not taken by halves
  EXPECT_EQ(3U, backlog.dropped_datagrams());
  EXPECT_EQ(1U, backlog.dropped_transfers());
  backlog.push(piece(4));
  backlog.push(piece(5));  // the newest is the one that has just come
  EXPECT_EQ(2U, backlog.dropped_transfers());
  EXPECT_EQ(6 * kCost, backlog.bytes());
  EXPECT_EQ("1 2 1 2 1 4 ", pop_ids(backlog));
  EXPECT_TRUE(backlog.empty());
  backlog.push(piece(6));  // the consumer still holds all of it
  EXPECT_EQ(5U, backlog.dropped_datagrams());
  backlog.give_back(3 * kCost);
  for (const std::uint64_t id : {3U, 6U}) backlog.push(piece(id));  // half is free: a later pass
  EXPECT_EQ("3 6 ", pop_ids(backlog));
}

TEST(Backlog, KeepsAnOldTransferThatCameBackBeforeANewOne) {
  Backlog backlog(2 * kCost);
  backlog.push(piece(1));
  backlog.push(piece(2));
  EXPECT_EQ("1 ", pop_ids(backlog, 1));
  backlog.give_back(kCost);
  backlog.push(piece(3));
  backlog.push(piece(1));  // the second pass of the first file
  EXPECT_EQ("2 1 ", pop_ids(backlog));
}

/// A line of many short transfers that nobody takes: the newest goes each time, and
/// that must not cost a look through all that waits.
TEST(Backlog, IsQuickWhenItIsFull) {
  Backlog backlog(100'000 * kCost);
  for (std::uint64_t id = 1; id <= 300'000; ++id) backlog.push(piece(id));
  EXPECT_EQ(200'000U, backlog.dropped_transfers());
}

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

TEST(Intake, LosesNothingWhileNobodyFetchesAndKeepsTheOrderOfEachTransfer) {
  sockaddr_in at{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
  socklen_t length = sizeof at;
  std::vector<UdpSocket> sockets;
  for (int i = 0; i < 2; ++i) sockets.emplace_back(at);
  Intake intake(sockets, 64 << 20, false);
  const Fd sender(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  constexpr unsigned kSegment = 1400;
  ASSERT_EQ(0, setsockopt(sender.get(), IPPROTO_UDP, UDP_SEGMENT, &kSegment, sizeof kSegment));
  constexpr std::uint64_t kPairs = 3'000;  // more than an ordinary receive buffer holds
  for (std::uint64_t i = 0; i < kPairs; ++i) {
    const UdpSocket& to = sockets[i % 2];
    ASSERT_EQ(0, getsockname(to.fd(), reinterpret_cast<sockaddr*>(&at), &length));
    unsigned char pair[2 * kSegment] = {};  // of two transfers; they may arrive as one message
    for (const std::size_t begin : {0U, kSegment}) {
      pair[begin] = static_cast<unsigned char>(1 + 2 * (i % 2) + (begin > 0));
      std::memcpy(pair + begin + 8, &i, sizeof i);
    }
    ASSERT_EQ(sizeof pair,
              sendto(sender.get(), pair, sizeof pair, 0, reinterpret_cast<sockaddr*>(&at), length));
    // a small buffer must not overflow on a busy machine
    for (int waiting = 1; !to.is_roomy() && waiting > 0;) ioctl(to.fd(), FIONREAD, &waiting);
  }
  intake.finish();
  std::uint64_t next[5] = {0, 0, 0, 1, 1}, got = 0;
  for (bool more = true; more;) {
    const Intake::Batch batch = intake.next(0ms);
    more = !batch.empty();
    for (const Taken& taken : batch) {
      for (std::size_t from = 0; from < taken.size; from += taken.segment, ++got) {
        ASSERT_EQ(taken.key.id, taken.bytes[from]);
        std::uint64_t number = 0;
        std::memcpy(&number, taken.bytes.get() + from + 8, sizeof number);
        ASSERT_EQ(next[taken.key.id], number);
        next[taken.key.id] += 2;
      }
    }
  }
  EXPECT_EQ(2 * kPairs, got);
  EXPECT_EQ(0U, intake.counts().kernel_drops);
  EXPECT_EQ(0U, intake.counts().memory);
}

}  // namespace
