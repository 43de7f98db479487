// Missing parts as the ledger has them: the sizes of a file, a text up to a line end, then
// what is taken out of the set, a pair of bytes each.
#include "receiver/base/ranges.h"

#include <algorithm>

#include "fuzz/target.h"
#include "receiver/base/byte_ranges.h"
#include "wire/wire_format.h"

namespace {

std::uint64_t count_of(const Ranges& ranges) {
  std::uint64_t count = 0;
  for (const auto& [first, last] : ranges.all()) {
    check(first <= last);
    count += last - first + 1;
  }
  return count;
}

void check_set(const Ranges& ranges) {
  check(ranges.count() == count_of(ranges));
  check(ranges.empty() == (ranges.count() == 0));
  const auto again = Ranges::parse(ranges.text());
  check(again && again->all() == ranges.all());
}

void check_bytes(const TransferRecord& record) {
  std::uint64_t behind = 0;
  for (const auto& [first, last] : missing_bytes(record)) {
    check(first >= behind && first <= last && last < record.size);
    behind = last + 1;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  TransferRecord record;
  record.udata_size = static_cast<std::uint32_t>(input.number(3));
  record.size = input.number(8);
  const std::string rest = input.rest();
  const std::size_t end = std::min(rest.find('\n'), rest.size());
  record.missing = rest.substr(0, end);
  check_bytes(record);
  std::optional<Ranges> ranges = Ranges::parse(record.missing);
  if (!ranges) return 0;
  check(ranges->text() == record.missing);
  check_set(*ranges);
  for (std::size_t at = end + 1; at + 1 < rest.size(); at += 2) {
    const auto first = static_cast<unsigned char>(rest[at]);
    const auto last = first + static_cast<std::uint64_t>(static_cast<unsigned char>(rest[at + 1]));
    const std::uint64_t before = ranges->count();
    const bool was_there = ranges->contains(first);
    const std::uint64_t removed = ranges->remove(first, last);
    check(before - removed == ranges->count() && (!was_there || removed > 0));
    check(!ranges->contains(first) && !ranges->contains(last));
  }
  check_set(*ranges);
  return 0;
}
