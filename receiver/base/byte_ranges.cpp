#include "receiver/base/byte_ranges.h"

#include <algorithm>
#include <optional>

#include "receiver/base/ranges.h"
#include "wire/wire_format.h"

ByteRanges missing_bytes(const TransferRecord& record) {
  ByteRanges ranges;
  const std::optional<Ranges> parts = Ranges::parse(record.missing);
  if (!parts || record.udata_size <= kHeaderSize) return ranges;
  const std::uint64_t part = part_size(record.udata_size);
  const std::uint64_t count = part_count(record.size, record.udata_size);
  for (const auto& [first, last] : parts->all()) {
    if (first == 0 || first > count) continue;  // the file has no such part
    ranges.emplace_back((first - 1) * part, last >= count ? record.size - 1 : last * part - 1);
  }
  return ranges;
}

std::string ranges_text(const ByteRanges& ranges, std::size_t most) {
  std::string text;
  for (std::size_t i = 0; i < std::min(ranges.size(), most); ++i) {
    if (i > 0) text += ", ";
    text += std::to_string(ranges[i].first) + "-" + std::to_string(ranges[i].second);
  }
  if (ranges.size() > most) text += ", ... " + std::to_string(ranges.size() - most) + " more";
  return text;
}
