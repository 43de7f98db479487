#include "check/route.h"

#include <arpa/inet.h>
#include <linux/ethtool.h>
#include <linux/rtnetlink.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include "ground/owners.h"

namespace {

struct RouteRequest {
  nlmsghdr header;
  rtmsg message;
  rtattr attribute;
  in_addr address;
};

/// Reads interface and next hop from the answer, rtnetlink(7).
void read_answer(const nlmsghdr& answer, Route& route) {
  const auto* message = static_cast<const rtmsg*>(NLMSG_DATA(&answer));
  route.needs_neighbour = message->rtm_type == RTN_UNICAST;
  auto left = static_cast<unsigned int>(RTM_PAYLOAD(&answer));
  for (const rtattr* a = RTM_RTA(message); RTA_OK(a, left); a = RTA_NEXT(a, left)) {
    if (a->rta_type == RTA_GATEWAY) std::memcpy(&route.next_hop, RTA_DATA(a), sizeof(in_addr));
    if (a->rta_type != RTA_OIF) continue;
    int index = 0;
    std::memcpy(&index, RTA_DATA(a), sizeof index);
    std::array<char, IF_NAMESIZE> name{};
    if (if_indextoname(static_cast<unsigned>(index), name.data()) != nullptr)
      route.device = name.data();
  }
}

void ask_routing_table(const in_addr& address, Route& route) {
  const Fd netlink(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
  RouteRequest request{};
  request.header.nlmsg_len = sizeof request;
  request.header.nlmsg_type = RTM_GETROUTE;
  request.header.nlmsg_flags = NLM_F_REQUEST;
  request.message.rtm_family = AF_INET;
  request.message.rtm_dst_len = 32;
  request.attribute.rta_type = RTA_DST;
  request.attribute.rta_len = RTA_LENGTH(sizeof(in_addr));
  request.address = address;
  alignas(nlmsghdr) std::array<char, 4096> answer{};
  if (send(netlink.get(), &request, sizeof request, 0) < 0) return;
  const ssize_t got = recv(netlink.get(), answer.data(), answer.size(), 0);
  const auto* header = reinterpret_cast<const nlmsghdr*>(answer.data());
  if (got >= static_cast<ssize_t>(sizeof(nlmsghdr)) && header->nlmsg_type == RTM_NEWROUTE)
    read_answer(*header, route);
}

ifreq request_for(const std::string& device) {
  ifreq request{};
  device.copy(request.ifr_name, IF_NAMESIZE - 1);
  return request;
}

int speed_of_card(int any_socket, const std::string& device) {
  ethtool_cmd command{};
  command.cmd = ETHTOOL_GSET;
  ifreq request = request_for(device);
  request.ifr_data = reinterpret_cast<char*>(&command);
  if (ioctl(any_socket, SIOCETHTOOL, &request) != 0) return 0;
  const __u32 speed = ethtool_cmd_speed(&command);
  return speed == static_cast<__u32>(SPEED_UNKNOWN) ? 0 : static_cast<int>(speed);
}

void ask_device(int any_socket, Route& route) {
  ifreq request = request_for(route.device);
  if (ioctl(any_socket, SIOCGIFFLAGS, &request) != 0) return;
  const int flags = request.ifr_flags;
  route.has_carrier = (flags & IFF_RUNNING) != 0;
  if ((flags & (IFF_LOOPBACK | IFF_NOARP | IFF_POINTOPOINT)) != 0) route.needs_neighbour = false;
  route.card_speed = speed_of_card(any_socket, route.device);
}

}  // namespace

Route find_route(const sockaddr_in& to) {
  Route route;
  const Fd probe(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const int on = 1;
  (void)setsockopt(probe.get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
  // connecting looks the route up and sends nothing, udp(7)
  if (connect(probe.get(), reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0) {
    route.error = errno;
    return route;
  }
  socklen_t len = sizeof route.mtu;
  (void)getsockopt(probe.get(), IPPROTO_IP, IP_MTU, &route.mtu, &len);
  route.next_hop = to.sin_addr;
  ask_routing_table(to.sin_addr, route);
  if (!route.device.empty()) ask_device(probe.get(), route);
  return route;
}

bool has_permanent_neighbour(const in_addr& address, const std::string& device) {
  std::array<char, INET_ADDRSTRLEN> wanted{};
  inet_ntop(AF_INET, &address, wanted.data(), wanted.size());
  std::ifstream table("/proc/net/arp");  // proc(5)
  for (std::string line; std::getline(table, line);) {
    std::istringstream fields(line);
    std::string ip, type, flags, station, mask, on;
    fields >> ip >> type >> flags >> station >> mask >> on;
    if (ip == wanted.data() && on == device &&
        (std::strtol(flags.c_str(), nullptr, 16) & ATF_PERM) != 0)
      return true;
  }
  return false;
}
