// receiver/settled_ids.h: transfers that are settled, whose late packets are ignored.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <unordered_set>

/// Keeps the latest ones; the ledger knows more.
class SettledIds {
 public:
  static constexpr std::size_t kMost = 100'000;

  void add(std::uint64_t id) {
    if (!ids_.insert(id).second) return;
    order_.push_back(id);
    if (order_.size() <= kMost) return;
    ids_.erase(order_.front());
    order_.pop_front();
  }

  bool has(std::uint64_t id) const { return ids_.count(id) != 0; }

 private:
  std::unordered_set<std::uint64_t> ids_;
  std::deque<std::uint64_t> order_;  ///< the same, as they came
};
