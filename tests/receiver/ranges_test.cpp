// receiver/ranges, against a set that holds every number by itself.
#include "receiver/ranges.h"

#include <gtest/gtest.h>

#include <random>
#include <set>

TEST(RangesTest, AgreesWithASetUnderRandomRemovals) {
  std::mt19937 random(7);
  for (int round = 0; round < 200; ++round) {
    Ranges ranges(1, 60);
    std::set<std::uint64_t> set;
    for (std::uint64_t n = 1; n <= 60; ++n) set.insert(n);
    while (!set.empty()) {
      const std::uint64_t first = 1 + random() % 64;
      const std::uint64_t last = first + random() % 6 - 1;  // one in six: nothing
      std::uint64_t removed = 0;
      for (std::uint64_t n = first; n <= last; ++n) removed += set.erase(n);
      ASSERT_EQ(removed, ranges.remove(first, last));
      for (std::uint64_t n = 0; n < 64; ++n) ASSERT_EQ(set.count(n) == 1, ranges.contains(n)) << n;
      const auto again = Ranges::parse(ranges.text());
      ASSERT_TRUE(again && again->all() == ranges.all() && again->count() == set.size());
    }
  }
}

TEST(RangesTest, ReachesTheLastNumberAndReadsOnlyItsOwnText) {
  Ranges ranges(1, UINT64_MAX);
  EXPECT_EQ(UINT64_MAX - 5, ranges.remove(6, UINT64_MAX));
  EXPECT_EQ(1U, ranges.remove(0, 1) + ranges.remove(6, UINT64_MAX) + Ranges(2, 1).count());
  for (const char* text : {"0-", "-", "5-4", "5-5", "1,", ",1", "1-2,3", "1-5,3-9", "3,1", "1,1",
                           "01", "+1", " 1", "1 ", "1;2", "1-2-3", "18446744073709551616"})
    EXPECT_FALSE(Ranges::parse(text)) << text;
}
