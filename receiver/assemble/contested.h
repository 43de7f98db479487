// receiver/assemble/contested.h: keys under which two files came at once, so that nobody
// can tell to which of them a part belongs.
#pragma once

#include <cstddef>
#include <iterator>
#include <unordered_map>

#include "receiver/base/transfer_key.h"

/// A key stays contested until nothing came under it for some time. Times are
/// monotonic, s.
class Contested {
 public:
  static constexpr std::size_t kMost = 10'000;  ///< any of them is forgotten for a newer one

  void add(const TransferKey& key, double now) {
    if (heard_.size() >= kMost) heard_.erase(heard_.begin());
    heard_[key] = now;
  }

  /// Notes that a packet came under `key`; false if that is not contested.
  bool hear(const TransferKey& key, double now) {
    const auto found = heard_.find(key);
    if (found == heard_.end()) return false;
    found->second = now;
    return true;
  }

  /// Forgets the keys that were silent for `seconds`.
  void expire(double now, double seconds) {
    for (auto it = heard_.begin(); it != heard_.end();) {
      it = now - it->second > seconds ? heard_.erase(it) : std::next(it);
    }
  }

 private:
  std::unordered_map<TransferKey, double> heard_;
};
