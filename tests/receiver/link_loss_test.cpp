// The line's loss by the senders' counters.
#include "receiver/take/link_loss.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

struct LinkLossTest : testing::Test {
  /// From each of the counters to the next `came` datagrams come, the next service packet
  /// among them; a second passes. Returns what was lost of what was sent so far.
  std::string after(std::uint64_t source, std::uint64_t came,
                    const std::vector<std::uint64_t>& counts) {
    for (const std::uint64_t count : counts) {
      for (std::uint64_t i = 0; i < came; ++i) loss.datagram(source);
      loss.service(source, count, now += 1);
    }
    return std::to_string(loss.lost()) + "/" + std::to_string(loss.sent());
  }
  LinkLoss loss;
  double now = 0;
};

TEST_F(LinkLossTest, TellsSendersOfOneAddressApart) {
  EXPECT_EQ("0/0", after(1, 90, {1000}));
  EXPECT_EQ("0/0", after(2, 100, {10}));
  EXPECT_EQ("10/100", after(1, 90, {1100}));
  EXPECT_EQ("10/101", after(2, 100, {11}));
}

TEST_F(LinkLossTest, BelievesNoCounterThatIsForgedLateOrRepeated) {
  EXPECT_EQ("0/100", after(1, 100, {100, 200}));
  EXPECT_EQ("0/100", after(1, 0, {200, 150, 1, 0, 900'000, 1ULL << 63, ~0ULL}));
  EXPECT_EQ("0/200", after(1, 100, {300}));
  EXPECT_EQ("0/200", after(1, 0, {~0ULL - 1, ~0ULL, 5, 6}));
  EXPECT_EQ("10/300", after(1, 90, {400}));
}

TEST_F(LinkLossTest, GoesOnAfterAnInterruptionAndAfterARestartOfTheCounter) {
  EXPECT_EQ("0/10", after(1, 10, {100, 110}));
  EXPECT_EQ("0/10", after(1, 1, {1'000'000, 1'000'010})) << "it is not sure yet";
  EXPECT_EQ("999900/999920", after(1, 8, {1'000'020}));
  EXPECT_EQ("999900/999950", after(1, 10, {10, 20, 30, 40}));
}

TEST_F(LinkLossTest, ForgedSourcesPushOutNoneThatSends) {
  (void)after(1, 10, {100});
  for (std::uint64_t source = 2; source <= 2 * LinkLoss::kMostSources; ++source)
    loss.service(source, 5, now);
  now += LinkLoss::kForgotten;
  EXPECT_EQ("5/10", after(1, 5, {110}));
  now += 98;
  EXPECT_EQ("5/11", after(9999, 1, {100, 101})) << "those that are silent make place";
}

}  // namespace
