#include "receiver/stash.h"

#include <algorithm>
#include <utility>

namespace {

constexpr std::size_t kOverhead = 64;  // bytes that a kept part costs beside its own

}  // namespace

void Stash::put(const DataPacket& packet) {
  const std::size_t cost = packet.len + kOverhead;
  while (!order_.empty() && bytes_ + cost > kMostBytes) forget_oldest();
  if (kept_.count(packet.id) == 0) {
    while (order_.size() >= kMostTransfers) forget_oldest();
    order_.push_back(packet.id);
  }
  Kept& kept = kept_[packet.id];
  kept.parts.push_back({packet.part_no, {packet.data, packet.data + packet.len}});
  kept.bytes += cost;
  kept.last_seen = now_;
  bytes_ += cost;
}

std::vector<Stash::Part> Stash::take(std::uint64_t id) {
  const auto found = kept_.find(id);
  if (found == kept_.end()) return {};
  std::vector<Part> parts = std::move(found->second.parts);
  bytes_ -= found->second.bytes;
  kept_.erase(found);
  order_.erase(std::find(order_.begin(), order_.end(), id));
  return parts;
}

void Stash::expire(double now, double seconds) {
  const std::deque<std::uint64_t> ids = order_;
  for (const std::uint64_t id : ids) {
    if (now - kept_[id].last_seen > seconds) forget(id);
  }
}

void Stash::forget(std::uint64_t id) { forgotten_ += take(id).size(); }

void Stash::forget_oldest() { forget(order_.front()); }
