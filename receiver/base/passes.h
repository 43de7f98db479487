// receiver/base/passes.h: how much of a file each pass of the sender brought.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "receiver/base/record.h"

/// What one pass brought of a file's parts.
struct Pass {
  std::uint64_t fresh = 0;
  std::uint64_t repeated = 0;
  std::uint64_t lost = 0;
  bool ended = true;  ///< false: we stopped looking, or it goes on; `lost` says nothing
};

/// One for each pass that was told apart, pass 1 first.
std::vector<Pass> passes_of(const TransferRecord& record);

/// "pass 1: 95+0 of 100, 5.0 % lost; pass 2: 5+40 of 100 when complete", of a file
/// with parts.
std::string passes_text(const TransferRecord& record, const std::vector<Pass>& passes);

/// "4.0 %" of `of`, which is not 0; a little is never shown as nothing.
std::string percent(std::uint64_t lost, std::uint64_t of);
