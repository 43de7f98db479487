// receiver/base/passes.h: how much of a file each pass of the sender brought.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "receiver/base/record.h"

/// How many of a file's parts one pass brought.
struct Pass {
  std::uint64_t fresh = 0;
  std::uint64_t repeated = 0;
  std::uint64_t lost = 0;
  bool ended = true;  ///< false: we stopped looking, or it goes on; `lost` says nothing
};

/// Returns one entry for each pass that could be told apart, pass 1 first.
std::vector<Pass> passes_of(const TransferRecord& record);

/// "pass 1: 95+0 of 100, 5.0 % lost; pass 2: 5+40 of 100 when complete", of a file
/// with parts.
std::string passes_text(const TransferRecord& record, const std::vector<Pass>& passes);

/// Returns `lost` as a percentage of `of`, which must not be 0: "4.0 %". A small loss is
/// never shown as 0.
std::string percent(std::uint64_t lost, std::uint64_t of);
