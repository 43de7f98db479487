#include "receiver/byte_ranges.h"

#include <optional>

#include "receiver/ranges.h"
#include "send/wire_format.h"

ByteRanges missing_bytes(const TransferRecord& record) {
  ByteRanges ranges;
  const std::optional<Ranges> parts = Ranges::parse(record.missing);
  if (!parts || record.udata_size <= kHeaderSize) return ranges;
  const std::uint64_t part = part_size(record.udata_size);
  const std::uint64_t count = part_count(record.size, record.udata_size);
  for (const auto& [first, last] : parts->all()) {
    if (first == 0 || first > count) continue;  // no part of this file
    ranges.emplace_back((first - 1) * part, last >= count ? record.size - 1 : last * part - 1);
  }
  return ranges;
}

std::string ranges_text(const ByteRanges& ranges) {
  std::string text;
  for (const auto& [first, last] : ranges) {
    if (!text.empty()) text += ", ";
    text += std::to_string(first) + "-" + std::to_string(last);
  }
  return text;
}
