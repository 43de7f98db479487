// The line's loss by the senders' counters.
#include "receiver/take/link_loss.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

struct LinkLossTest : testing::Test {
  /// From each of the counters to the next `came` datagrams come, the next service packet
  /// among them; a second passes.
  void counters(std::uint64_t source, std::uint64_t came,
                const std::vector<std::uint64_t>& counts) {
    for (const std::uint64_t count : counts) {
      for (std::uint64_t i = 0; i < came; ++i) loss.datagram(source);
      loss.service(source, count, now += 1);
    }
  }
  std::string told() const {
    return std::to_string(loss.lost()) + "/" + std::to_string(loss.sent());
  }
  LinkLoss loss;
  double now = 0;
};

TEST_F(LinkLossTest, TellsSendersOfOneAddressApart) {
  for (std::uint64_t count = 1000; count <= 1200; count += 100) {
    counters(1, 90, {count});
    counters(2, 100, {count / 100});
  }
  EXPECT_EQ("20/202", told());
}

TEST_F(LinkLossTest, BelievesNoCounterThatIsForgedLateOrRepeated) {
  counters(1, 100, {100, 200});
  EXPECT_EQ("0/100", told());
  for (const std::uint64_t bad : {200ULL, 150ULL, 1ULL, 0ULL, 900'000ULL, 1ULL << 63, ~0ULL})
    counters(1, 0, {bad});
  counters(1, 100, {300});
  EXPECT_EQ("0/200", told());
  counters(1, 0, {~0ULL - 1, ~0ULL, 5, 6});
  counters(1, 90, {400});
  EXPECT_EQ("10/300", told());
}

TEST_F(LinkLossTest, GoesOnAfterAnInterruptionAndAfterARestartOfTheCounter) {
  counters(1, 10, {100, 110});
  counters(1, 1, {1'000'000, 1'000'010});
  EXPECT_EQ("0/10", told()) << "it is not sure yet";
  counters(1, 8, {1'000'020});
  EXPECT_EQ("999900/999920", told());
  counters(1, 10, {10, 20, 30, 40});
  EXPECT_EQ("999900/999950", told());
}

TEST_F(LinkLossTest, ForgedSourcesPushOutNoneThatSends) {
  counters(1, 10, {100});
  for (std::uint64_t source = 2; source <= 2 * LinkLoss::kMostSources; ++source)
    loss.service(source, 5, now);
  now += LinkLoss::kForgotten;
  counters(1, 5, {110});
  EXPECT_EQ("5/10", told());
  loss.service(9999, 100, now + 99);  // those that are silent make place
  loss.datagram(9999);
  loss.service(9999, 101, now + 100);
  EXPECT_EQ("5/11", told());
}

}  // namespace
