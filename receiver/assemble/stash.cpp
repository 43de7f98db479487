#include "receiver/assemble/stash.h"

#include <iterator>
#include <utility>

namespace {

// bytes beside the part's own, as measured with glibc: an empty std::deque takes 600
constexpr std::size_t kOfAPart = 64;
constexpr std::size_t kOfATransfer = 800;

std::size_t cost(const Stash::Part& part) { return part.bytes.size() + kOfAPart; }

}  // namespace

void Stash::put(const TransferKey& key, const DataPacket& packet, double now) {
  if (places_.count(key) == 0) {
    kept_.push_back({key, {}, now});
    places_[key] = std::prev(kept_.end());
    bytes_ += kOfATransfer;
  }
  const auto kept = places_[key];
  kept_.splice(kept_.end(), kept_, kept);
  kept->last_seen = now;
  kept->parts.push_back({packet.part_no, {packet.data, packet.data + packet.len}});
  bytes_ += cost(kept->parts.back());
  while (bytes_ > most_ && !kept_.empty()) forget_oldest_part();
}

std::deque<Stash::Part> Stash::take(const TransferKey& key) {
  const auto found = places_.find(key);
  if (found == places_.end()) return {};
  std::deque<Part> parts = std::move(found->second->parts);
  for (const Part& part : parts) bytes_ -= cost(part);
  bytes_ -= kOfATransfer;
  kept_.erase(found->second);
  places_.erase(found);
  return parts;
}

void Stash::expire(double now, double seconds) {
  while (!kept_.empty() && now - kept_.front().last_seen > seconds) {
    forgotten_ += take(TransferKey(kept_.front().key)).size();
  }
}

void Stash::forget_oldest_part() {
  Kept& oldest = kept_.front();
  ++forgotten_;
  bytes_ -= cost(oldest.parts.front());
  oldest.parts.pop_front();
  if (oldest.parts.empty()) (void)take(TransferKey(oldest.key));
}
