#include "receiver/link_loss.h"

void LinkLoss::datagram(std::uint32_t source) {
  if (const auto found = sources_.find(source); found != sources_.end()) ++found->second.came;
}

void LinkLoss::service(std::uint32_t source, std::uint64_t all_send_cnt) {
  if (sources_.count(source) == 0 && sources_.size() >= kMostSources) return;
  Source& s = sources_[source];
  const bool counts_on = s.last_count != 0 && all_send_cnt > s.last_count;
  if (counts_on) {  // else the first of this sender, or it was started anew
    const std::uint64_t sent = all_send_cnt - s.last_count;
    sent_ += sent;
    lost_ += sent > s.came ? sent - s.came : 0;
  }
  s.last_count = all_send_cnt;
  s.came = 0;
}
