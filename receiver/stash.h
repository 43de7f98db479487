// receiver/stash.h: parts that came before their transfer's first header packet.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <unordered_map>
#include <vector>

#include "receiver/datagram.h"

/// Keeps up to a fixed amount; when full it forgets whole transfers, the one
/// that began longest ago first.
class Stash {
 public:
  static constexpr std::size_t kMostBytes = 16 << 20;
  static constexpr std::size_t kMostTransfers = 1024;

  struct Part {
    std::uint64_t part_no;
    std::vector<unsigned char> bytes;
  };

  /// Copies the part.
  void put(const DataPacket& packet);

  /// Gives what was kept of the transfer, in the order it came, and forgets it.
  std::vector<Part> take(std::uint64_t id);

  /// Forgets the transfers that have not got a part for `seconds`, at the time
  /// `now` (monotonic, s).
  void expire(double now, double seconds);

  /// The time that put() notes.
  void set_time(double now) { now_ = now; }

  /// Parts forgotten so far.
  std::uint64_t forgotten() const { return forgotten_; }

 private:
  struct Kept {
    std::vector<Part> parts;
    std::size_t bytes = 0;
    double last_seen = 0;
  };
  void forget(std::uint64_t id);
  void forget_oldest();

  std::unordered_map<std::uint64_t, Kept> kept_;
  std::deque<std::uint64_t> order_;  ///< the ids of kept_, as they began
  std::size_t bytes_ = 0;
  std::uint64_t forgotten_ = 0;
  double now_ = 0;
};
