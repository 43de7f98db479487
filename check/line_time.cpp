#include "check/line_time.h"

#include <algorithm>

#include "scan/walk.h"
#include "send/pacing.h"
#include "send/seal.h"
#include "send/transfer.h"
#include "state/settings.h"
#include "wire/wire_format.h"

namespace {

constexpr double kMicrosecond = 1e-6;

double seconds_for_packet(int card_speed) {
  const auto size = static_cast<std::uint32_t>(settings.udata_size);
  if (is_paced())
    return static_cast<double>(to_delay(packet_interval(size, settings.speed))) / kSecs_to_nsecs;
  return card_speed > 0 ? line_bits(size) / (card_speed * 1e6) : 0;
}

double seconds_for_pass(std::uint64_t parts, int card_speed) {
  return settings.head_send * (kAfterHeaderUs * kMicrosecond) +
         static_cast<double>(parts) * seconds_for_packet(card_speed);
}

}  // namespace

double seconds_for_file(std::uint64_t size, int card_speed) {
  const auto udata = static_cast<std::uint32_t>(settings.udata_size);
  const double passes = settings.data_send * seconds_for_pass(part_count(size, udata), card_speed);
  const double seal = settings.seal ? seconds_for_pass(repair_parts(size), card_speed) : 0;
  return passes + seal + kAfterSentFileUs * kMicrosecond;
}
