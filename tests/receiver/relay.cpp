#include "relay.h"

#include <algorithm>
#include <map>

bool Relay::pass(std::size_t frames) {
  bool lost = false;
  for (; frames > 0; --frames) {
    lost = lost || bad_ || happens(line_.loss);
    if (happens(bad_ ? line_.to_good : line_.to_bad)) bad_ = !bad_;
  }
  return lost;
}

std::vector<std::string> Relay::carry(const std::vector<std::string>& sent) {
  std::multimap<std::size_t, std::string> due;
  for (std::size_t i = 0; i < sent.size(); ++i) {
    if (pass(frames_of(sent[i].size()))) continue;
    for (int copies = happens(line_.doubled) ? 2 : 1; copies > 0; --copies)
      due.emplace(i + random_() % (line_.late + 1), sent[i]);
  }
  std::vector<std::string> arrived;
  for (auto& [at, datagram] : due) arrived.push_back(std::move(datagram));
  return arrived;
}
