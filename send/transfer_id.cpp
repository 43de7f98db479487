#include "send/transfer_id.h"

#include <cstdlib>
#include <ctime>

#include "softlib/clock.h"

namespace {

std::uint32_t send_id_cnt = 0;

std::uint32_t random_bits(std::uint32_t mask) {
  return static_cast<std::uint32_t>(std::rand()) & mask;
}

}  // namespace

std::uint64_t next_transfer_id() {
  if (send_id_cnt == 0) {
    std::srand(static_cast<unsigned int>(std::time(nullptr)));
    for (int i = 0; i < 4; ++i) send_id_cnt = send_id_cnt << 8 | random_bits(0xFF);
  }
  ++send_id_cnt;
  const std::uint64_t random = random_bits(0xFFFF);
  return random << 48 | (GetTickCount() & 0xFFFF) << 32 | send_id_cnt;
}
