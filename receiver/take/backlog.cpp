#include "receiver/take/backlog.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

constexpr std::size_t kAllocation = 16;           // what malloc(3) adds to each
constexpr std::size_t kMostBeginnings = 100'000;  // of a generation

}  // namespace

std::size_t Taken::cost() const { return size + unused + sizeof(Taken) + kAllocation; }

void Backlog::push(Taken taken) {
  const std::uint64_t begun = beginning_of(taken.key);
  if (dropped_.count(taken.key) != 0) {
    dropped_datagrams_ += taken.datagrams();
    return;
  }
  Waiting& waiting = waiting_[taken.key];
  if (waiting.pieces++ == 0) {
    waiting.begun = begun;
    newest_.emplace(begun, taken.key);
  }
  bytes_ += taken.cost();
  queue_.push_back(std::move(taken));
  while (bytes_ > most_ && !queue_.empty()) drop_newest();
}

std::uint64_t Backlog::beginning_of(const TransferKey& key) {
  if (const auto found = begun_.find(key); found != begun_.end()) return found->second;
  if (begun_.size() >= kMostBeginnings) {
    begun_before_ = std::move(begun_);
    begun_.clear();
  }
  const auto before = begun_before_.find(key);
  const std::uint64_t begun = before != begun_before_.end() ? before->second : next_beginning_++;
  return begun_.emplace(key, begun).first->second;
}

void Backlog::drop_newest() {
  const TransferKey key = std::prev(newest_.end())->second;
  const auto is_of_it = [&key](const Taken& taken) { return taken.key == key; };
  // all that came since it began is at the end: the rest need not be looked through
  auto first = queue_.end();
  for (std::size_t left = waiting_.at(key).pieces; left > 0; left -= is_of_it(*first) ? 1 : 0) {
    --first;
  }
  for (auto each = first; each != queue_.end(); ++each) {
    if (!is_of_it(*each)) continue;
    dropped_datagrams_ += each->datagrams();
    bytes_ -= each->cost();
  }
  queue_.erase(std::remove_if(first, queue_.end(), is_of_it), queue_.end());
  newest_.erase(std::prev(newest_.end()));
  waiting_.erase(key);
  dropped_.insert(key);
  ++dropped_transfers_;
}

std::vector<Taken> Backlog::pop(std::size_t bytes) {
  std::vector<Taken> oldest;
  for (std::size_t sum = 0; !queue_.empty() && sum < bytes;) {
    sum += queue_.front().cost();
    forget_one_piece(queue_.front().key);
    oldest.push_back(std::move(queue_.front()));
    queue_.pop_front();
  }
  return oldest;
}

void Backlog::forget_one_piece(const TransferKey& key) {
  const auto found = waiting_.find(key);
  if (--found->second.pieces > 0) return;
  newest_.erase(found->second.begun);
  waiting_.erase(found);
}

void Backlog::give_back(std::size_t cost) {
  bytes_ -= cost;
  if (bytes_ <= most_ / 2) dropped_.clear();
}
