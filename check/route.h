// check/route.h: finds out, without sending anything, how datagrams to an address leave
// this machine.
#pragma once

#include <netinet/in.h>

#include <string>

struct Route {
  int error = 0;                 ///< errno of a send to the address; 0: there is a route
  std::string device;            ///< network interface; empty if unknown
  in_addr next_hop{};            ///< the address whose neighbour entry is used
  int mtu = 0;                   ///< bytes, IP header included; 0 if unknown
  bool needs_neighbour = false;  ///< a neighbour entry says to which station frames go
  bool has_carrier = true;
  int card_speed = 0;  ///< Mbit/s of 1,000,000 bits; 0 if the card does not tell
};

/// Returns the route to `to` (address and port).
Route find_route(const sockaddr_in& to);

/// True if `address` has a permanent neighbour entry on `device`.
bool has_permanent_neighbour(const in_addr& address, const std::string& device);
