// receiver/assemble/arrivals.h: all files on their way in: those that still grow, in the
// order of their last packets, and those set aside, which only wait for a disk that takes
// them. Nothing here looks through all of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <list>
#include <unordered_map>
#include <utility>
#include <vector>

#include "receiver/assemble/arrival.h"
#include "receiver/base/now.h"
#include "receiver/base/transfer_key.h"

/// Over many arrivals.
struct ArrivalSums {
  std::uint64_t missing = 0;    ///< parts
  std::uint64_t repeated = 0;   ///< parts
  std::uint64_t differing = 0;  ///< parts
  std::uint64_t failed = 0;     ///< parts that could not be written
  std::uint64_t promised = 0;   ///< bytes still to come, but of each file no more than came
};

class Arrivals {
 public:
  /// None under this key: nullptr. It stays valid until the arrival is erased.
  Arrival* find(const TransferKey& key);

  /// Takes it, as one that a packet came for just now. There must be none under its key.
  Arrival& add(Arrival arrival);

  void erase(const TransferKey& key);

  /// A packet came for it at `now`, and it was flushed: it is the last to be given up.
  void note_packet(Arrival& arrival, const Now& now);

  /// Brings the sums up to date with it.
  void update(const Arrival& arrival);

  /// The growing ones, and of these the one that was silent for longest; nullptr: none.
  std::size_t growing() const { return growing_.size(); }
  Arrival* most_silent() { return growing_.empty() ? nullptr : &growing_.front().arrival; }

  /// How many of those grow whose packets come from the IPv4 `address` (host byte order),
  /// and which of them was silent for longest.
  std::size_t growing_from(std::uint32_t address) const;
  Arrival* most_silent_from(std::uint32_t address);

  /// Sets it aside until `due` (monotonic, s), behind those that are. A packet for one
  /// that is not complete brings it back.
  void set_aside(Arrival& arrival, double due);
  bool is_aside(const TransferKey& key) const;
  std::size_t aside() const { return aside_.size(); }
  /// The first of them, if it is due at `now` (monotonic, s) or earlier; else nullptr.
  Arrival* due(double now);

  /// The records of up to `most` with changes that no call returned yet. Those of which
  /// nothing but a header packet came are left out: the next one begins them anew.
  std::vector<TransferRecord> changed(std::size_t most);
  bool has_changes() const { return !unsaved_.empty(); }
  /// The changes that `records` hold were not saved: returns them again.
  void not_saved(const std::vector<TransferRecord>& records);
  /// All are to be saved again: what was saved is gone.
  void all_changed();

  /// `missing` and `promised` are of those that are here, the other sums of all that ever
  /// were.
  const ArrivalSums& sums() const { return sums_; }

 private:
  using OfAddress = std::list<TransferKey>;
  struct Entry {
    Arrival arrival;
    ArrivalSums counted;  ///< its share in sums_
    bool unsaved = false;
    bool aside = false;
    double due = 0;
    OfAddress::iterator of_address;  ///< while it grows
  };
  using Entries = std::list<Entry>;

  void leave_address(Entry& entry);
  void join_address(Entry& entry);
  void mark_unsaved(Entry& entry);

  Entries growing_;  ///< the one that was silent for longest first
  Entries aside_;    ///< the one due next first
  std::unordered_map<TransferKey, Entries::iterator> places_;
  std::unordered_map<std::uint32_t, OfAddress> by_address_;  ///< the growing, as in growing_
  std::deque<TransferKey> unsaved_;                          ///< may name some that are gone
  ArrivalSums sums_;
};
