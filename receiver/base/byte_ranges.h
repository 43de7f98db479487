// receiver/base/byte_ranges.h: which bytes of a file did not come.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "receiver/base/record.h"

using ByteRanges = std::vector<std::pair<std::uint64_t, std::uint64_t>>;  ///< first, last

/// Returns the bytes of the parts in `record.missing`, in the file's order. Parts that the
/// file can't have are left out.
ByteRanges missing_bytes(const TransferRecord& record);

/// Returns "0-1379, 2760-4139". If there are more than `most` ranges, only the first `most`
/// are listed, with the number of the others: "0-1379, ... 7 more".
std::string ranges_text(const ByteRanges& ranges, std::size_t most = SIZE_MAX);
