// send/service_packet.h: counts datagrams and tells the far side the counts.
#pragma once

#include <cstdint>

/// Datagrams counted since the process began, service packets included; stays
/// 0 while `send_serv` is 0.
extern std::uint64_t all_send_cnt;

/// How many more datagrams go out before a service packet is due; huge if none
/// ever is.
std::uint64_t datagrams_to_service();

/// Call it after each datagram that was sent: counts it and, behind every
/// `send_serv`-th, sends a service packet. A failed one is not reported.
void serv_pack_send();
