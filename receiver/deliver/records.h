// receiver/deliver/records.h: the ledger as the running receiver uses it, which never waits
// for it. While another process has the ledger locked, or its disk is full, what became of
// transfers waits in memory and is written as soon as that is possible.
//
// If the receiver is killed meanwhile, a delivered file is in no record, or in one that says it
// is still being received. The next start then calls it incomplete ("its bytes are gone"), and
// a later pass delivers it once more.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "receiver/base/record.h"
#include "receiver/ledger/ledger.h"
#include "receiver/tell/events.h"

class Records {
 public:
  static constexpr std::size_t kMostWaiting = 100'000;  ///< about 70 MB

  /// Both are kept by the caller and must outlive it. Up to `most` records wait.
  Records(Ledger& ledger, Events& events, std::size_t most = kMostWaiting)
      : ledger_(ledger), events_(events), most_(most) {}

  /// Writes the record, or keeps it in memory if it is settled. False if it is not written
  /// yet; the first failure in a row is warned of.
  bool save(const TransferRecord& record);

  /// Writes many that are not settled in one transaction. False, and none is kept, if that
  /// fails.
  bool save_all(const std::vector<TransferRecord>& records);

  /// Writes what waits, as far as that is possible. To be called often.
  void catch_up();

  /// True if a record of a transfer under `key` waits, so that the ledger's record of the key
  /// is out of date.
  bool is_behind(const TransferKey& key) const { return by_key_.count(key) != 0; }

  /// As of the ledger (ledger.h), but with what waits.
  std::optional<TransferRecord> find(const TransferRecord& announced);
  std::optional<Origin> owner_of(const std::string& lies_at);
  std::string place_of(const std::string& asked_for, const Origin& origin);

  /// False if an answer of the two functions above was uncertain since the last call, or if
  /// deliveries of this run are no longer all known.
  bool were_certain();

  /// Records that wait, and those that were given up because too many did.
  std::size_t waiting() const { return waiting_.size(); }
  std::uint64_t lost() const { return lost_; }

 private:
  using Waiting = std::list<TransferRecord>;

  bool write(const std::vector<const TransferRecord*>& records);
  void note_failure(const std::string& error);
  void keep(const TransferRecord& record);
  void forget(Waiting::iterator record);
  void forget_older(const TransferRecord& record);

  Ledger& ledger_;
  Events& events_;
  std::size_t most_;
  Waiting waiting_;  ///< in the order in which they are to be written
  std::unordered_multimap<TransferKey, Waiting::iterator> by_key_;
  std::unordered_map<std::string, Waiting::iterator> by_place_;  ///< delivered: by lies_at
  std::unordered_map<std::string, Waiting::iterator> by_path_;   ///< delivered: what, from where
  bool failing_ = false;
  std::uint64_t lost_ = 0;
};
