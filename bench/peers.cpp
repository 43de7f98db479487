#include "bench/peers.h"

#include <fstream>
#include <sstream>

#include "bench/lab.h"

namespace {

constexpr std::uint16_t kPort = 56000;
constexpr double kGlance = 0.001;      // s
constexpr double kPatience = 60;       // s
constexpr double kToListen = 0.3;      // s until a server is there
constexpr double kFrameHeaders = 42;   // Ethernet, IPv4, UDP
constexpr double kUdpcastHeader = 16;  // bytes before its blocks

struct Traffic {
  double at;
  double packets;
  double payload;  // bytes
};

/// What has gone out on the loopback device; nothing where it can't be read.
Traffic traffic() {
  constexpr int kReceiveColumns = 8;
  std::ifstream devices("/proc/self/net/dev");
  Traffic result{now(), 0, 0};
  for (std::string line; std::getline(devices, line);) {
    const std::size_t colon = line.find("lo:");
    if (colon == std::string::npos) continue;
    std::istringstream columns(line.substr(colon + 3));
    double value = 0;
    for (int i = 0; i < kReceiveColumns; ++i) columns >> value;
    columns >> result.payload >> result.packets;
    result.payload -= result.packets * kFrameHeaders;
  }
  return result;
}

/// Gbit/s while the middle eight tenths of all that `child` sends go out: start,
/// handshake and farewell don't count against it.
std::optional<double> rate_of(Child& child) {
  std::vector<Traffic> seen{traffic()};
  const double end = now() + kPatience;
  while (child.is_running()) {
    if (now() > end) fail("a peer does not end");
    rest(kGlance);
    seen.push_back(traffic());
  }
  if (child.status() != 0) return std::nullopt;
  const double first = seen.front().payload;
  const double all = seen.back().payload - first;
  const Traffic* from = nullptr;
  const Traffic* to = nullptr;
  for (const Traffic& t : seen) {
    if (from == nullptr && t.payload >= first + 0.1 * all) from = &t;
    if (t.payload <= first + 0.9 * all) to = &t;
  }
  if (from == nullptr || to == nullptr || to->at <= from->at) return std::nullopt;
  return (to->payload - from->payload) * 8 / 1e9 / (to->at - from->at);
}

std::optional<double> run_iperf3(const std::string& path, const Load& load) {
  const std::string port = std::to_string(kPort);
  Child server({path, "-s", "-1", "-B", "127.0.0.1", "-p", port}, Child::Output::kDropped);
  rest(kToListen);
  Child client({path, "-c", "127.0.0.1", "-p", port, "-u", "-b", "0", "-l",
                std::to_string(load.datagram), "-n", std::to_string(load.bytes)},
               Child::Output::kDropped);
  return rate_of(client);
}

std::optional<double> run_udp_sender(const std::string& path, const Load& load) {
  const Sink sink(0, kPort);
  const auto block = static_cast<int>(load.datagram - kUdpcastHeader);
  Child child({path,
               "--async",
               "--interface",
               "lo",
               "--nokbd",
               "--no-progress",
               "--autostart",
               "1",
               "--rexmit-hello-interval",
               "10",
               "--mcast-data-address",
               "127.0.0.1",
               "--mcast-rdv-address",
               "127.0.0.1",
               "--portbase",
               std::to_string(kPort),
               "--blocksize",
               std::to_string(block),
               "--file",
               load.file},
              Child::Output::kDropped);
  return rate_of(child);
}

std::optional<double> run_uftp(const std::string& path, const Load& load) {
  const std::string server = find_program("uftpd");
  const WorkFolder into;
  Child receiver({server, "-d", "-D", into.path(""), "-M", "127.0.0.1", "-I", "lo"},
                 Child::Output::kDropped);
  rest(kToListen);
  Child sender({path, "-R", "-1", "-b", std::to_string(load.datagram), "-I", "lo", "-M",
                "127.0.0.1", "-P", "127.0.0.1", load.file},
               Child::Output::kDropped);
  return rate_of(sender);
}

}  // namespace

const std::vector<Peer>& peers() {
  static const std::vector<Peer> all{
      {"iperf3", "iperf3", "its server, which reads", run_iperf3},
      {"udp-sender", "udpcast", "a socket that doesn't read", run_udp_sender},
      {"uftp", "uftp", "its receiver, which asks for what was lost", run_uftp}};
  return all;
}
