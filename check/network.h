// check/network.h: will what the sender hands to the network leave this machine whole?
#pragma once

#include <vector>

#include "ground/findings.h"
#include "state/scan_folder.h"

/// Findings about the receivers of `folders`. `is_set` tells whether the user named one.
void check_network(const std::vector<scan_folder>& folders, bool is_set, Findings& findings);

/// Fragments in which a datagram with `payload` bytes crosses links of `mtu` bytes.
int fragments_of(int payload, int mtu);

/// Mbit/s of 1,000,000 bits at which the slowest card sends that files of `folders` leave
/// by; 0 if none tells.
int slowest_card(const std::vector<scan_folder>& folders);
