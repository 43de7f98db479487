#include "send/service_packet.h"

#include <sys/socket.h>

#include <array>

#include "send/socket.h"
#include "state/settings.h"
#include "wire/wire_format.h"

std::uint64_t all_send_cnt = 0;

namespace {

/// A negative interval becomes a huge unsigned one, so that no packet is ever due.
std::uint64_t interval() { return static_cast<std::uint64_t>(settings.send_serv); }

void count_datagram() {
  ++cur_folder->send_cnt;
  ++all_send_cnt;
}

}  // namespace

std::uint64_t datagrams_to_service() {
  if (settings.send_serv == 0) return ~std::uint64_t{0};
  return interval() - all_send_cnt % interval();
}

void serv_pack_send() {
  if (settings.send_serv == 0) return;
  count_datagram();
  if (all_send_cnt % interval() != 0) return;
  count_datagram();  // the service packet itself, which carries the new counts
  std::array<unsigned char, kServicePacketSize> packet{};
  put_header(packet.data(), kServiceId, 0, kServicePacketSize - kHeaderSize);
  put_le(packet.data() + kAllSendCntAt, all_send_cnt);
  put_le(packet.data() + kSendCntAt, cur_folder->send_cnt);
  const sockaddr_in to = receiver_address(*cur_folder);
  (void)sendto(sock, packet.data(), packet.size(), 0, reinterpret_cast<const sockaddr*>(&to),
               sizeof to);  // if it is lost, the next one carries the counts
}
