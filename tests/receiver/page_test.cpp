// The page: what it counts, and that nothing off the wire is more than text in it.
#include "receiver/tell/page.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

#include "receiver/tell/html.h"
#include "receiver/tell/plots.h"

namespace {

TransferRecord transfer(std::uint32_t crc, Outcome outcome, double at) {
  TransferRecord r;
  r.path_crc = crc, r.outcome = outcome, r.first_packet = at, r.last_packet = at + 10;
  r.name = "file" + std::to_string(crc), r.udata_size = 1400, r.parts = 100, r.size = 138000;
  r.received = 100, r.received_per_pass = {90, 10}, r.repeated_per_pass = {0, 80};
  return r;
}

struct Page : testing::Test {
  Page() { setenv("TZ", "UTC", 1); }
  std::size_t count(const std::string& what) const {
    std::size_t found = 0;
    const std::string page = page_of(content);
    for (std::size_t at = 0; (at = page.find(what, at)) + 1 != 0; ++at) ++found;
    return found;
  }
  PageContent content;
};

}  // namespace

TEST_F(Page, ShowsWhatComesOffTheWireAsText) {
  const std::string evil = "</bdi><script>alert('1')</script>&\"\x1B\x7F\xE2\x80\xAE\xD8\x9C\xFF";
  const std::string shown =
      "&lt;/bdi&gt;&lt;script&gt;alert(&#39;1&#39;)&lt;/script&gt;&amp;&quot;"
      "\\x1B\\x7F\\xE2\\x80\\xAE\\xD8\\x9C\\xFF";
  EXPECT_EQ(shown, html_text(evil));
  TransferRecord r = transfer(1, Outcome::kIncomplete, 1e9);
  r.name = r.folder = r.source = r.why = r.delivered_to = r.asked_for = r.lies_at = evil;
  content.transfers = {r};
  r.outcome = Outcome::kDelivered, r.collided = true, r.path_crc = 2;
  content.transfers.push_back(r);
  content.journal.not_here.push_back({{0, 1, 2, evil, 0}, std::nullopt});
  content.journal.entries = content.journal.lost = 1, content.read_error = evil;
  EXPECT_EQ(1U, count("<script>"));
  EXPECT_EQ(0U, count("alert('1')"));
  EXPECT_EQ(15U, count(shown));  // folder and name of three rows, and nine more
}

TEST_F(Page, CountsTransfersPassesAndWhatIsMissing) {
  EXPECT_TRUE(content.is_whole());
  EXPECT_EQ(1U, count("Nothing is known to be missing."));
  content.transfers = {
      transfer(1, Outcome::kDelivered, 1e9), transfer(2, Outcome::kIncomplete, 1e9 + 1),
      transfer(3, Outcome::kRefused, 1e9 + 2), transfer(3, Outcome::kDelivered, 1e9 + 3),
      transfer(4, Outcome::kReceiving, 1e9 + 4)};
  content.transfers[4].missing = "2-100";
  content.transfers[4].received_per_pass = {1};  // of a pass that is not over
  content.transfers[4].repeated_per_pass = {0};
  content.transfers[1].missing = "2-3,100";
  content.transfers[1].received_per_pass = {90, 7};
  EXPECT_FALSE(content.is_whole());
  for (const char* text : {"<b>2</b>delivered,<br>276 kB", "<b>1</b>incomplete",
                           "<td class=incomplete>incomplete<td class=n data-l=size>138000"
                           "<td class=n data-l=missing>4140",
                           "2 missing ranges</summary>bytes 1380-4139, 136620-137999</details>",
                           "<b>10.0 %</b>loss of first passes",
                           "pass 2<td class=n data-l=transfers>4<td class=n data-l=new>37"
                           "<td class=n data-l=known>320<td class=n data-l=lost>13.0 %"
                           "<td class=n data-l=completed>2",
                           "37 parts that earlier",
                           "1 transfer failed, but the file was delivered when it was sent again."})
    EXPECT_EQ(1U, count(text)) << text;
  EXPECT_EQ(1U, count("<td class=refused>")) << "in the list of all only: it came again";
  EXPECT_EQ(2U, count("<td class=incomplete>"));
}

TEST_F(Page, LeavesOutOlderRowsAndSaysSo) {
  for (std::size_t i = 0; i <= kMostTransfers; ++i) {
    const auto crc = static_cast<std::uint32_t>(i);
    content.transfers.push_back(
        transfer(crc, i < kMostTroubles + 3 ? Outcome::kRefused : Outcome::kDelivered, 1e9));
  }
  for (std::size_t i = 0; i < kMostRanges + 2; ++i) {
    content.transfers[9].missing += (i > 0 ? "," : "") + std::to_string(2 * i + 1);
  }
  EXPECT_EQ(1U, count("<p class=soft>1 older ones are left out"));
  EXPECT_EQ(1U, count("<p class=soft>3 older ones are left out"));
  EXPECT_EQ(1U, count(" and 2 more ranges</details>"));
  EXPECT_EQ(0U, count("<bdi>file0</bdi>"));
}

TEST(Plots, SpreadLossAndRateOverTheirSpans) {
  EXPECT_EQ(0U, timeline_of({}).spans);
  std::vector<TransferRecord> records = {transfer(1, Outcome::kDelivered, 1000),
                                         transfer(2, Outcome::kDelivered, 1175)};
  records[1].received_per_pass = {100};
  const Timeline timeline = timeline_of(records);
  EXPECT_EQ(1000, timeline.start);
  EXPECT_EQ(5, timeline.width);
  ASSERT_EQ(38U, timeline.spans);
  const Series loss = loss_over(timeline, records), rate = rate_over(timeline, records);
  EXPECT_EQ(10, loss[0]);
  EXPECT_EQ(0, loss[35]);
  EXPECT_FALSE(loss[1]);
  EXPECT_NEAR(138000 * 8 / 1048576.0 / 10, *rate[1], 1e-9);
  EXPECT_EQ(0, rate[3]);
  for (double seconds = 10; seconds < 1e9; seconds *= 2) {
    records[1].last_packet = 1000 + seconds;
    const double width = timeline_of(records).width, day = 86400;
    EXPECT_EQ(0, std::fmod(day, width) * std::fmod(width, day)) << seconds;
  }
  records[1].first_packet = -1e300, records[1].last_packet = 1e300;  // no time
  EXPECT_EQ(timeline_of({records[0]}).spans, timeline_of(records).spans);
  EXPECT_EQ(10, loss_over(timeline_of(records), records)[0]);
}
