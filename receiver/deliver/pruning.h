// receiver/deliver/pruning.h: deletes what was kept and is old: records of the ledger,
// trash journals and incomplete files.
#pragma once

#include <cstddef>

#include "receiver/base/now.h"
#include "receiver/ledger/ledger.h"

/// Deletes from the open `folder` the journals and incomplete files that the receiver put
/// there and that were last written before `before` (since 1970, s), with their notes. They
/// are known by their names, which hold a transfer's key; all else stays. Returns how many
/// files went.
std::size_t prune_kept(int folder, double before);

/// Prunes by and by while the receiver runs.
class Pruning {
 public:
  /// Prunes what is older than `age` s; nothing if that is 0. The ledger and the open
  /// folders must outlive it.
  Pruning(Ledger& ledger, int journals, int incomplete, double age)
      : ledger_(ledger), journals_(journals), incomplete_(incomplete), age_(age) {}

  /// Call it now and then; a call takes a few milliseconds, but for one an hour, which
  /// reads both folders.
  void tick(const Now& now);

 private:
  Ledger& ledger_;
  int journals_;
  int incomplete_;
  double age_;
  double next_ = 0;  ///< monotonic, s
};
