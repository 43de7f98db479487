#include "relay.h"

#include <algorithm>
#include <utility>

std::size_t frames_of(std::size_t size) { return (size + 8 + 1479) / 1480; }

bool Relay::happens(double chance) { return random_() < chance * 4294967296.0; }

bool Relay::loses_frame() {
  const bool lost = bad_ || happens(line_.loss);
  if (happens(bad_ ? line_.to_good : line_.to_bad)) bad_ = !bad_;
  return lost;
}

bool Relay::loses(std::size_t frames) {
  bool lost = false;
  while (frames-- > 0) lost = loses_frame() || lost;
  return lost;
}

void Relay::idle(unsigned frames) { (void)loses(frames); }

std::vector<std::string> Relay::carry(const std::vector<std::string>& sent) {
  std::vector<std::pair<std::size_t, const std::string*>> due;
  for (std::size_t i = 0; i < sent.size(); ++i) {
    if (loses(frames_of(sent[i].size()))) continue;
    for (int copies = happens(line_.doubled) ? 2 : 1; copies > 0; --copies)
      due.emplace_back(i + random_() % (line_.late + 1), &sent[i]);
  }
  std::stable_sort(due.begin(), due.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  std::vector<std::string> arrived;
  for (const auto& [at, datagram] : due) arrived.push_back(*datagram);
  return arrived;
}
