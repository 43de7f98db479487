// Many datagrams with one call, or each with its own: nobody can tell what came.
#include <net/if.h>
#include <sys/ioctl.h>

#include <cstring>
#include <set>

#include "support.h"

/// Sends files around every size at which a batch may end; by the same paths where `home`
/// is the same. Each datagram has a call of its own unless it `joins` others.
std::vector<Packet> send_all(const TempDir& home, const std::string& datagram, bool joins) {
  const std::size_t part = std::stoul(datagram) - 20;
  for (const std::size_t parts : {0U, 1U, 2U, 7U, 8U, 46U, 47U, 93U, 200U}) {
    for (const std::size_t more : {0U, 1U}) {
      std::string bytes(parts * part + more, '\0');
      for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * i / 7);
      home.write("in/" + std::to_string(parts) + "_" + std::to_string(more), bytes);
    }
  }
  const Collector net;
  Program program(home,
                  {"-v:0", "-s:0", "-f:in", "-c:0", "-q:30", "-u:1", "-a:cp1251", "-t:" + datagram,
                   "-p:" + net.port},
                  [&] { setenv(joins ? "ANY_NAME" : "TARNWICK_PLAIN_SENDS", "1", 1); });
  EXPECT_EQ(0, program.wait());
  EXPECT_TRUE(fs::is_empty(home.path("in")));
  fs::remove(home.path("in"));
  return net.packets();
}

/// The packets without what differs from run to run: transfer ids and send times.
std::vector<std::string> masked(const std::vector<Packet>& packets) {
  std::vector<std::string> result;
  for (const Packet& packet : packets) {
    result.push_back(packet.bytes);
    if (!packet.is_service()) result.back().replace(0, 8, "transfer");
    if (packet.is_header()) result.back().replace(44, 8, "sendtime");
  }
  return result;
}

/// How many came with another: the parts of one call have one stamp.
std::size_t joined(const std::vector<Packet>& packets) {
  std::set<std::uint64_t> stamps;
  for (const Packet& packet : packets) stamps.insert(packet.arrived);
  return packets.size() - stamps.size();
}

/// Moves this process to a network of its own, with frames of `mtu` bytes.
bool enter_network(int mtu) {
  if (!enter_own_network()) return false;
  const Fd any(socket(AF_INET, SOCK_DGRAM, 0));
  ifreq lo{};
  std::strcpy(lo.ifr_name, "lo");
  lo.ifr_mtu = mtu;
  if (ioctl(any.get(), SIOCSIFMTU, &lo) != 0) return false;
  lo.ifr_flags = IFF_UP;
  return ioctl(any.get(), SIOCSIFFLAGS, &lo) == 0;
}

struct Segments : testing::Test {
  void SetUp() override {  // for what send_all() sends, unpaced
    if (Collector().room() < 4 << 20)
      GTEST_SKIP() << "needs CAP_NET_ADMIN or net.core.rmem_max of 2 MiB";
  }
  TempDir home;
};

TEST_F(Segments, AreTheSameDatagramsInTheSameOrder) {
  for (const std::string datagram : {"1400", "8192"}) {
    const auto many_a_call = send_all(home, datagram, true);
    const auto one_a_call = send_all(home, datagram, false);
    EXPECT_TRUE(masked(many_a_call) == masked(one_a_call)) << datagram;
    EXPECT_EQ(0U, joined(one_a_call));
    // with a send buffer of the ordinary size each goes out by itself
    if (home.ordinary) continue;
    EXPECT_LT(one_a_call.size() / 2, joined(many_a_call)) << "the kernel refused them";
  }
}

TEST_F(Segments, GoOutOneByOneWhereTheyWouldBeFragments) {
  if (!enter_network(1500)) GTEST_SKIP() << "needs the right to make a network";
  const auto refused = send_all(home, "8192", true);
  EXPECT_EQ(0U, joined(refused));
  EXPECT_TRUE(masked(refused) == masked(send_all(home, "8192", false)));
}
