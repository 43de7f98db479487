// check/network.h: checks whether what the sender sends leaves this machine whole.
#pragma once

#include <vector>

#include "ground/findings.h"
#include "state/scan_folder.h"

/// Adds findings about the receivers of `folders`. `is_set`: the user named a receiver.
void check_network(const std::vector<scan_folder>& folders, bool is_set, Findings& findings);

/// Returns in how many fragments a datagram with `payload` bytes crosses links of `mtu`
/// bytes.
int fragments_of(int payload, int mtu);

/// Returns the speed, in Mbit/s of 1,000,000 bits, of the slowest card through which files
/// of `folders` leave; 0 if it is unknown.
int slowest_card(const std::vector<scan_folder>& folders);
