// receiver/assemble/settled_transfers.h: transfers that are settled, or turned away for
// now, whose packets are ignored.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <unordered_map>

#include "receiver/base/transfer_key.h"

/// Keeps the latest ones; the ledger knows more.
class SettledTransfers {
 public:
  static constexpr std::size_t kMost = 100'000;

  /// Notes the transfer with the header packet `print` (header_print()); of several with
  /// one key only the last one's is kept.
  void add(const TransferKey& key, std::uint64_t print) {
    if (!prints_.insert_or_assign(key, print).second) return;
    order_.push_back(key);
    if (order_.size() <= kMost) return;
    prints_.erase(order_.front());
    order_.pop_front();
  }

  void forget(const TransferKey& key) { prints_.erase(key); }

  bool has(const TransferKey& key) const { return prints_.count(key) != 0; }
  bool has(const TransferKey& key, std::uint64_t print) const {
    const auto found = prints_.find(key);
    return found != prints_.end() && found->second == print;
  }

 private:
  std::unordered_map<TransferKey, std::uint64_t> prints_;
  std::deque<TransferKey> order_;  ///< the same, as they came
};
