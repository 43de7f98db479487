// receiver/take/backlog.h: datagrams in memory, between the thread that takes them
// in and the one that settles them. Used by both under a lock of the caller's.
//
// It is bounded. When the bound is reached whole transfers are dropped, the one that
// began last first: files that are further on arrive, and the line's loss falls on
// few. A dropped transfer is taken again, for a later pass, once half of the memory is
// free.
#pragma once

#include <netinet/in.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "receiver/base/now.h"
#include "receiver/base/transfer_key.h"

/// Datagrams of one transfer that came together from one sender.
struct Taken {
  std::unique_ptr<unsigned char[]> bytes;  ///< one datagram right behind the other
  std::size_t size = 0;                    ///< of all of them
  std::size_t segment = 0;                 ///< of each but the last, which may be shorter; not 0
  TransferKey key;                         ///< its id is 0 where there is none
  sockaddr_in from{};
  Now came;
  std::size_t unused = 0;  ///< bytes of its memory behind `size`

  std::size_t datagrams() const { return size == 0 ? 1 : (size + segment - 1) / segment; }
  std::size_t cost() const;  ///< bytes of memory
};

class Backlog {
 public:
  /// Takes up to `most` bytes of memory, what the consumer holds included.
  explicit Backlog(std::size_t most) : most_(most) {}

  /// Adds the datagrams behind all others, or drops them with their transfer.
  void push(Taken taken);

  /// Moves out the oldest, in order of arrival: about `bytes` of them, at least one
  /// where there is one. They count as memory until give_back().
  std::vector<Taken> pop(std::size_t bytes);

  /// `cost` bytes that pop() moved out are free again.
  void give_back(std::size_t cost);

  /// Returns when the oldest came. The backlog must not be empty.
  Now oldest() const { return queue_.front().came; }

  bool empty() const { return queue_.empty(); }

  /// Memory in use now, bytes.
  std::size_t bytes() const { return bytes_; }

  /// Datagrams dropped so far for want of memory, and the transfers they were of, each
  /// counted anew once it had been taken again.
  std::uint64_t dropped_datagrams() const { return dropped_datagrams_; }
  std::uint64_t dropped_transfers() const { return dropped_transfers_; }

 private:
  struct Waiting {
    std::uint64_t begun = 0;
    std::size_t pieces = 0;
  };
  std::uint64_t beginning_of(const TransferKey& key);
  void drop_newest();
  void forget_one_piece(const TransferKey& key);

  std::size_t most_;
  std::deque<Taken> queue_;
  std::size_t bytes_ = 0;
  std::unordered_map<TransferKey, Waiting> waiting_;  ///< transfers in queue_
  std::map<std::uint64_t, TransferKey> newest_;       ///< the same, by beginning
  std::unordered_set<TransferKey> dropped_;           ///< not taken at present
  // when each transfer began, by a counter; two generations, so that old ones go
  std::unordered_map<TransferKey, std::uint64_t> begun_;
  std::unordered_map<TransferKey, std::uint64_t> begun_before_;
  std::uint64_t next_beginning_ = 0;
  std::uint64_t dropped_datagrams_ = 0;
  std::uint64_t dropped_transfers_ = 0;
};
