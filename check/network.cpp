#include "check/network.h"

#include <arpa/inet.h>

#include <array>
#include <cmath>
#include <cstring>
#include <iomanip>
#include <optional>
#include <set>
#include <sstream>
#include <utility>

#include "check/route.h"
#include "send/pacing.h"
#include "send/socket.h"
#include "state/settings.h"

namespace {

constexpr char kAbout[] = "network";
constexpr int kIpHeader = 20;  // RFC 791
constexpr int kUdpHeader = 8;  // RFC 768

std::string text_of(const in_addr& address) {
  std::array<char, INET_ADDRSTRLEN> text{};
  inet_ntop(AF_INET, &address, text.data(), text.size());
  return text.data();
}

std::optional<sockaddr_in> check_address(const scan_folder& folder, Findings& findings) {
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(static_cast<std::uint16_t>(folder.port));
  if (inet_aton(folder.ip.c_str(), &to.sin_addr) == 0) {
    findings.stop(kAbout, quoted(folder.ip) +
                              " is no IPv4 address: the run ends at the first "
                              "file of " +
                              folder.abs_path);
    return std::nullopt;
  }
  if (text_of(to.sin_addr) != folder.ip)
    findings.warn(kAbout, "the address " + quoted(folder.ip) + " means " + text_of(to.sin_addr));
  if (to.sin_port == 0) {
    findings.stop(kAbout, "port " + std::to_string(folder.port) + " of " + folder.ip +
                              " goes out as 0, to which nothing can be sent");
  } else if (ntohs(to.sin_port) != folder.port) {
    findings.warn(kAbout, "port " + std::to_string(folder.port) + " of " + folder.ip +
                              " is none: it goes out as " + std::to_string(ntohs(to.sin_port)));
  }
  return to;
}

void check_datagram_size(const Route& route, const std::string& to, Findings& findings) {
  const int fragments = fragments_of(settings.udata_size, route.mtu);
  if (fragments <= 1) return;
  std::ostringstream lost;
  lost << std::fixed << std::setprecision(1) << 100 * (1 - std::pow(0.99, fragments));
  findings.warn(kAbout, "a datagram of " + std::to_string(settings.udata_size) + " bytes to " + to +
                            " goes out in " + std::to_string(fragments) +
                            " fragments, and is lost with any of them: a line that loses 1 % of "
                            "its frames loses " +
                            lost.str() + " % of these; -t:" +
                            std::to_string(route.mtu - kIpHeader - kUdpHeader) + " fits");
}

/// Mbit/s of 1,000,000 bits that `speed` puts on an Ethernet whose frames hold `mtu` bytes.
/// The sender reckons a frame's overhead a little differently.
double speed_on_line(int mtu) {
  constexpr int kFrame = 38;  // preamble, header, checksum and gap, IEEE 802.3
  const int size = settings.udata_size;
  const int bytes = size + kUdpHeader + fragments_of(size, mtu) * (kIpHeader + kFrame);
  const double ratio = bytes * 8.0 / line_bits(static_cast<std::uint32_t>(size));
  return settings.speed * 1.048576 * ratio;
}

void check_card(const Route& route, Findings& findings) {
  const std::string& device = route.device;
  if (!route.has_carrier)
    findings.warn(kAbout, device + " has no carrier: is its cable plugged in?");
  if (route.card_speed <= 0 || !is_paced() || !udata_size_is_valid()) return;
  const double wanted = speed_on_line(route.mtu);
  if (wanted <= route.card_speed) return;
  std::ostringstream speed;
  speed << settings.speed << " puts " << std::fixed << std::setprecision(1) << wanted;
  findings.warn(kAbout, "-s:" + speed.str() + " Mbit/s on the line, more than the " +
                            std::to_string(route.card_speed) + " Mbit/s of " + device +
                            ": the kernel drops the rest, and nobody is told");
}

void check_neighbour(const Route& route, Findings& findings) {
  if (!route.needs_neighbour || route.device.empty()) return;
  if (has_permanent_neighbour(route.next_hop, route.device)) return;
  const std::string hop = text_of(route.next_hop);
  findings.warn(kAbout, hop + " has no permanent neighbour entry on " + route.device +
                            ": where nothing comes back nothing goes out either, and nobody is "
                            "told: ip neigh replace " +
                            hop + " lladdr STATION nud permanent dev " + route.device);
}

void check_route(const sockaddr_in& to, Findings& findings) {
  const std::string address = text_of(to.sin_addr);
  const Route route = find_route(to);
  if (route.error != 0) {
    findings.stop(kAbout, "nothing can be sent to " + address + ": " + std::strerror(route.error));
    return;
  }
  check_datagram_size(route, address, findings);
  check_card(route, findings);
  check_neighbour(route, findings);
}

}  // namespace

void check_network(const std::vector<scan_folder>& folders, bool is_set, Findings& findings) {
  if (settings.scan_list_name.empty() && !is_set)
    findings.warn(kAbout, "no receiver is set: files go to this machine itself, " + settings.ip);
  std::set<std::pair<std::string, int>> done;
  for (const scan_folder& folder : folders) {
    if (!done.insert({folder.ip, folder.port}).second) continue;
    const auto to = check_address(folder, findings);
    if (to && to->sin_port != 0) check_route(*to, findings);
  }
}

int fragments_of(int payload, int mtu) {
  const int room = (mtu - kIpHeader) / 8 * 8;  // offsets count units of 8 bytes, RFC 791
  const int packet = payload + kUdpHeader;
  if (room <= 0 || packet + kIpHeader <= mtu) return 1;
  return (packet + room - 1) / room;
}

int slowest_card(const std::vector<scan_folder>& folders) {
  int slowest = 0;
  for (const scan_folder& folder : folders) {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<std::uint16_t>(folder.port));
    if (inet_aton(folder.ip.c_str(), &to.sin_addr) == 0) continue;
    const int speed = find_route(to).card_speed;
    if (speed > 0 && (slowest == 0 || speed < slowest)) slowest = speed;
  }
  return slowest;
}
