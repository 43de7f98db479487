// receiver/assemble/arrivals.h: all files on their way in. Some still grow, in the order of
// their last packets; others were set aside until the disk takes them. No call looks through
// all of them.
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

/// Sums over many arrivals.
struct ArrivalSums {
  std::uint64_t missing = 0;    ///< parts
  std::uint64_t repeated = 0;   ///< parts
  std::uint64_t differing = 0;  ///< parts
  std::uint64_t failed = 0;     ///< parts that could not be written
  std::uint64_t promised = 0;   ///< bytes still to come, for each file no more than have come
};

class Arrivals {
 public:
  /// Returns nullptr if there is none under this key. The pointer stays valid until the
  /// arrival is erased.
  Arrival* find(const TransferKey& key);

  /// Adds an arrival for which a packet has just come. There must be none under its key.
  Arrival& add(Arrival arrival);

  void erase(const TransferKey& key);

  /// Notes that a packet came for it at `now` and that it was flushed. It is then the last
  /// to be given up.
  void note_packet(Arrival& arrival, const Now& now);

  /// Brings the sums up to date after the arrival has changed.
  void update(const Arrival& arrival);

  /// Return how many grow, and which of these was silent for longest (nullptr if none grow).
  std::size_t growing() const { return growing_.size(); }
  Arrival* most_silent() { return growing_.empty() ? nullptr : &growing_.front().arrival; }

  /// Return the same for those whose packets come from the IPv4 `address` (host byte order).
  std::size_t growing_from(std::uint32_t address) const;
  Arrival* most_silent_from(std::uint32_t address);

  /// Sets the arrival aside until `due` (monotonic, s), behind those set aside before. If it
  /// is not complete, a packet for it brings it back.
  void set_aside(Arrival& arrival, double due);
  bool is_aside(const TransferKey& key) const;
  std::size_t aside() const { return aside_.size(); }
  /// Returns the first one set aside if it is due at `now` (monotonic, s); else nullptr.
  Arrival* due(double now);

  /// Returns the records of up to `most` arrivals that have changed since a call returned
  /// them. Those of which only header packets came are left out, since the next header
  /// packet begins them anew.
  std::vector<TransferRecord> changed(std::size_t most);
  bool has_changes() const { return !unsaved_.empty(); }
  /// Tells that `records` could not be saved, so that changed() returns them again.
  void not_saved(const std::vector<TransferRecord>& records);
  /// Has all of them saved again, since what was saved is gone.
  void all_changed();

  /// Returns the sums. `missing` and `promised` cover the present arrivals, the other sums
  /// all that there ever were.
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
