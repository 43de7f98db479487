// receiver/deliver/settlement.h: how a transfer ends: its file in place, the ledger's record,
// the count and the event.
#pragma once

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "receiver/assemble/arrival.h"
#include "receiver/base/now.h"
#include "receiver/deliver/records.h"
#include "receiver/deliver/store.h"
#include "receiver/ledger/ledger.h"
#include "receiver/tell/events.h"
#include "receiver/tell/metrics.h"

/// The result of an attempt to settle a transfer.
enum class Settled {
  kDelivered,
  kGivenUp,
  kNotYet,  ///< the disk did not take it; try again
  kGoesOn,  ///< a part of the work is done; call again after a rest
};

class Settlement {
 public:
  /// All are kept by the caller and must outlive it. What is incomplete is kept
  /// for a look, or dropped with `drop_incomplete`.
  Settlement(Store& store, Records& records, Ledger& ledger, Events& events, Metrics& metrics,
             bool drop_incomplete)
      : store_(store),
        records_(records),
        ledger_(ledger),
        events_(events),
        metrics_(metrics),
        drop_incomplete_(drop_incomplete) {}

  /// Delivers a complete arrival. If that is not possible now, notes it as waiting, with the
  /// reason, and keeps it; if it never will be, gives it up. `sealed` holds the names and
  /// attributes by its seal, if these are to be used.
  Settled deliver(Arrival& arrival, const Now& now, const std::optional<SealedAs>& sealed = {});

  /// Notes that a complete one waits, and why; returns kNotYet.
  Settled wait(Arrival& arrival, const std::string& why);

  /// Keeps the parts that came, or drops them, and reports the transfer; a later pass begins
  /// it anew. Returns kNotYet, with nothing done, if there is no room to keep them.
  Settled give_up(Arrival& arrival, const std::string& why, const Now& now);

  /// Reports a transfer of which nothing can be used: incomplete, so that a later pass
  /// begins it anew. After a thousand at once no more than 20 a second are told and
  /// recorded; all are counted.
  void lose(TransferRecord record, const std::string& why, const Now& now);

  /// Turns a transfer away, until a header packet of it comes again. Limited to
  /// 20 a second in the same way.
  void refuse(TransferRecord record, const std::string& why, const Now& now);

  /// Writes how many were turned away since the last call, at the time `real` (since
  /// 1970, s). On failure they stay for the next one.
  void save_refusals(double real);

 private:
  /// What may still be told and recorded: so many at once, and 20 more a second, since a
  /// flood must not fill the disk.
  class Budget {
   public:
    explicit Budget(double most) : most_(most), left_(most) {}
    bool spend(const Now& now);

   private:
    double most_;
    double left_;
    double at_ = 0;  ///< monotonic, s
  };

  /// The name that a file tries first.
  struct Naming {
    std::string name;
    bool replace = false;   ///< in the place of what is there; else it must be free
    bool collides = false;  ///< a numbered name would be for another path's file
  };

  Delivery deliver_journal(TransferRecord& record);
  std::string read_journal_of(const TransferRecord& record, bool& is_read);
  Delivery deliver_file(TransferRecord& record, const std::optional<SealedAs>& sealed);
  Naming name_for(const TransferRecord& record, const std::vector<std::string>& folders,
                  const std::string& wanted);
  Settled wait(Arrival& arrival, TransferRecord record, const std::string& why);
  void intend(TransferRecord& record, const std::string& lies_at, bool collided);

  Store& store_;
  Records& records_;
  Ledger& ledger_;
  Events& events_;
  Metrics& metrics_;
  bool drop_incomplete_;
  std::unordered_map<TransferKey, std::uint64_t> journals_read_;  ///< bytes, of those begun
  Refusals refusals_;                                             ///< not yet in the ledger
  Budget refusals_told_{20};
  Budget losses_told_{1000};  // the line's loss comes in bursts, and is no attack
};
