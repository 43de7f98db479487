// receiver/base/network.h: a range of IPv4 addresses.
#pragma once

#include <cstdint>

/// Addresses that agree with `address` in the bits of `mask`; host byte order.
struct Network {
  std::uint32_t address = 0;
  std::uint32_t mask = 0;
};
