// receiver/ranges, against a set that holds every number by itself.
#include "receiver/base/ranges.h"

#include <gtest/gtest.h>

#include <random>
#include <set>

#include "receiver/base/byte_ranges.h"

TEST(RangesTest, AgreesWithASetUnderRandomRemovals) {
  std::mt19937 random(7);
  for (int round = 0; round < 200; ++round) {
    Ranges ranges(1, 20);
    std::set<std::uint64_t> set;
    for (std::uint64_t n = 1; n <= 20; ++n) set.insert(n);
    for (std::uint64_t first = 1; !set.empty(); first = 1 + random() % 22) {
      const std::uint64_t last = first + random() % 4 - 1;  // one in four: nothing
      std::uint64_t removed = 0;
      for (std::uint64_t n = first; n <= last; ++n) removed += set.erase(n);
      ASSERT_EQ(removed, ranges.remove(first, last));
      for (std::uint64_t n = 0; n < 24; ++n) ASSERT_EQ(set.count(n) == 1, ranges.contains(n)) << n;
      const Ranges again = Ranges::parse(ranges.text()).value();
      ASSERT_EQ(ranges.all(), again.all());
      ASSERT_EQ(2 * set.size(), again.count() + ranges.count());
    }
  }
}

TEST(RangesTest, ReachesTheLastNumberAndReadsOnlyItsOwnText) {
  EXPECT_EQ(UINT64_MAX - 5, Ranges(1, UINT64_MAX).remove(6, UINT64_MAX) + Ranges(2, 1).count());
  for (const char* text : {"0-", "5-4", "5-5", "1,", ",1", "1-2,3", "1-5,3-9", "1-5,5-9", "01",
                           "1;2", "-1", "0-18446744073709551615"})
    EXPECT_FALSE(Ranges::parse(text)) << text;
}

TEST(RangesTest, OfBytesAreThoseOfPartsThatTheFileCanHave) {
  TransferRecord record;
  record.udata_size = 1400, record.size = 3000;
  for (const auto& [missing, bytes] : {std::pair{"x", ""},
                                       {"0-1", ""},
                                       {"4", ""},
                                       {"2-3", "1380-2999"},
                                       {"1,3-9", "0-1379, 2760-2999"}}) {
    record.missing = missing;
    EXPECT_EQ(bytes, ranges_text(missing_bytes(record))) << missing;
  }
}
