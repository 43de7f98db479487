// receiver/assemble/stash.h: parts that came before their transfer's first header packet.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <list>
#include <unordered_map>
#include <vector>

#include "receiver/base/transfer_key.h"
#include "receiver/take/datagram.h"

/// Keeps up to a given amount of memory. When that is full it forgets parts one by one, the
/// oldest of the transfer that was silent for longest first. Times are monotonic, s.
class Stash {
 public:
  /// Keeps at most `most` bytes of memory in use, its own bookkeeping included.
  explicit Stash(std::size_t most) : most_(most) {}

  struct Part {
    std::uint64_t part_no;
    std::vector<unsigned char> bytes;
  };

  /// Copies the part, which came at `now`.
  void put(const TransferKey& key, const DataPacket& packet, double now);

  /// Returns what was kept of the transfer, in the order it came, and forgets it.
  std::deque<Part> take(const TransferKey& key);

  /// Forgets the transfers that have not got a part for `seconds`.
  void expire(double now, double seconds);

  /// Parts forgotten so far.
  std::uint64_t forgotten() const { return forgotten_; }

 private:
  struct Kept {
    TransferKey key;
    std::deque<Part> parts;
    double last_seen = 0;
  };
  void forget_oldest_part();

  std::size_t most_;
  std::list<Kept> kept_;  ///< the one that was silent for longest first
  std::unordered_map<TransferKey, std::list<Kept>::iterator> places_;
  std::size_t bytes_ = 0;
  std::uint64_t forgotten_ = 0;
};
