// receiver/values.h: what the texts of the command line mean.
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <optional>
#include <string>

#include "receiver/base/network.h"

/// "[ADDRESS:]PORT", for bind(); the address is 0.0.0.0 where none is named.
std::optional<sockaddr_in> to_endpoint(const std::string& text);

/// "ADDRESS[/BITS]"
std::optional<Network> to_network(const std::string& text);

/// "GROUP[@INTERFACE]", for IP_ADD_MEMBERSHIP (ip(7)): a multicast address, and the name of
/// an interface that is there; without one the routes tell.
std::optional<ip_mreqn> to_membership(const std::string& text);

/// "90", "1.5min", "2h": a number above 0 with a unit (ms, s, min, h, d), in seconds.
/// Without a unit it stands for `unit`.
std::optional<double> to_seconds(const std::string& text, const std::string& unit = "s");

/// "4096", "10G", "10GiB": a whole number of bytes with a unit (K, M, G, T: powers of 1024;
/// "B" and "iB" may follow) in either case, up to 2^63 - 1.
std::optional<std::uint64_t> to_bytes(const std::string& text);
