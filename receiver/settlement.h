// receiver/settlement.h: how a transfer ends: its file in place, the ledger's record,
// the count and the event.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "receiver/events.h"
#include "receiver/ledger.h"
#include "receiver/metrics.h"
#include "receiver/store.h"
#include "receiver/transfer.h"

class Settlement {
 public:
  /// All are kept by the caller and must outlive it. What is incomplete is kept
  /// for a look, or dropped with `drop_incomplete`.
  Settlement(Store& store, Ledger& ledger, Events& events, Metrics& metrics, bool drop_incomplete)
      : store_(store),
        ledger_(ledger),
        events_(events),
        metrics_(metrics),
        drop_incomplete_(drop_incomplete) {}

  /// Delivers a complete one at the time `real` (since 1970, s). False if that is
  /// not possible: it is given up then. After either the caller closes it.
  bool deliver(Transfer& transfer, double real);

  /// Keeps what came, or drops it, and reports it. The caller closes the transfer; a
  /// later pass begins it anew.
  void give_up(Transfer& transfer, const std::string& why);

  /// Turns a transfer away at the time `now` (monotonic, s). More than 20 a second
  /// are only counted.
  void refuse(TransferRecord record, const std::string& why, double now);

  /// Writes the record. On failure warns, and keeps it (up to 1000) for save_again()
  /// if it is no longer receiving; one that is, the caller must save again.
  void save(const TransferRecord& record);

  /// Tries once more what could not be saved, up to the first failure.
  void save_again();

 private:
  void read_journal_of(const Transfer& transfer);

  Store& store_;
  Ledger& ledger_;
  Events& events_;
  Metrics& metrics_;
  bool drop_incomplete_;
  std::map<std::uint64_t, TransferRecord> unsaved_;  ///< by id
  std::uint64_t refusals_told_ = 0;                  ///< in the present second
  double refusal_second_ = 0;
};
