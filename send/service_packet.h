// send/service_packet.h: counts datagrams and sends the counts to the receiver.
#pragma once

#include <cstdint>

/// Datagrams counted since the process began, service packets included; stays
/// 0 while `send_serv` is 0.
extern std::uint64_t all_send_cnt;

/// Returns how many more datagrams go out before a service packet is due; a huge
/// number if service packets are off.
std::uint64_t datagrams_to_service();

/// Call it after each datagram that was sent. It counts the datagram and sends a
/// service packet after every `send_serv`-th one. A failure to send it is not reported.
void serv_pack_send();
