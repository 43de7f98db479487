// The code against slow arithmetic of its own, straight from its definition.
#include "seal/code.h"

#include <gtest/gtest.h>

#include <random>

namespace {

using Bytes = std::vector<unsigned char>;
std::mt19937 dice(7);

unsigned char product(unsigned a, unsigned b) {
  unsigned sum = 0;
  for (; b != 0; b >>= 1, a = (a << 1) ^ (a > 127 ? 0x11DU : 0U)) sum ^= (b & 1) != 0 ? a : 0;
  return static_cast<unsigned char>(sum);
}

unsigned char inverse(unsigned a) {
  unsigned b = 1;
  while (product(a, b) != 1) ++b;
  return static_cast<unsigned char>(b);
}

/// Repair part `t` of the window that is `parts`.
Bytes repair_of(const std::vector<Bytes>& parts, const Code& code, std::size_t t,
                std::size_t size) {
  const std::size_t blocks = (parts.size() + code.k - 1) / code.k;
  Bytes sum(size);
  for (std::size_t q = t % blocks; q < parts.size(); q += blocks) {
    const auto row = static_cast<unsigned>(code.k + t / blocks);
    const unsigned char factor = inverse(row ^ static_cast<unsigned>(q / blocks));
    std::array<unsigned char, 256> times{};
    for (unsigned i = 0; i < 256; ++i) times[i] = product(factor, i);
    for (std::size_t i = 0; i < parts[q].size(); ++i) sum[i] ^= times[parts[q][i]];
  }
  return sum;
}

void check_file(std::size_t count, std::size_t last_size, std::uint32_t size, const Code& code) {
  SCOPED_TRACE(testing::Message() << count << " parts of " << size << ", k " << code.k << " r "
                                  << code.r << " window " << code.window);
  const auto layout = CodeLayout::of(count, size, code);
  ASSERT_TRUE(layout);
  WindowEncoder encoder(*layout);
  std::uint64_t repair_parts = 0;
  for (std::uint64_t window = 0; window < layout->windows(); ++window) {
    std::vector<Bytes> parts(layout->parts_in(window), Bytes(size));
    if (window + 1 == layout->windows()) parts.back().resize(last_size);
    encoder.start(window);
    for (Bytes& part : parts) {
      for (unsigned char& byte : part) byte = static_cast<unsigned char>(dice());
      encoder.add(part.data(), part.size());
    }
    for (std::size_t t = 0; t < encoder.repair_parts(); ++t) {
      const unsigned char* const part = encoder.repair_part(t);
      ASSERT_EQ(repair_of(parts, code, t, size), Bytes(part, part + size)) << t;
    }
    repair_parts += encoder.repair_parts();
  }
  EXPECT_EQ(layout->repair_parts(), repair_parts);
}

TEST(Code, IsThatOfItsDefinition) {
  const Code small{3, 2, 10}, usual{5, 4, 20}, strong{63, 189, 126};
  for (const Code& code : {small, usual}) {
    for (const std::size_t count : {1U, 2U, 3U, 4U, 5U, 6U, 9U, 10U, 11U, 19U, 20U, 21U, 47U}) {
      check_file(count, 700, 1380, code);
    }
  }
  for (const std::size_t count : {1U, 2U, 63U, 64U, 127U}) check_file(count, 1, 1380, strong);
  check_file(1, 1, 61440, choose_code(1, 5 * kOnePercent, 61440));
  check_file(254, 1400, 1400, {254, 1, 254});
  for (std::uint32_t tail = 1; tail < 64; ++tail) check_file(3, tail, 1380 + tail, small);
}

TEST(Code, IsChosenWithoutRounding) {
  const auto chosen = [](std::uint64_t parts, const char* percent, std::uint32_t size = 1380) {
    const Code code = choose_code(parts, *parse_percent(percent), size);
    return std::array<std::uint64_t, 3>{code.k, code.r, code.window};
  };
  using Numbers = std::array<std::uint64_t, 3>;
  EXPECT_EQ((Numbers{1, 4, 12157}), chosen(1, "1"));
  EXPECT_EQ((Numbers{200, 4, 65536}), chosen(200, "1"));
  EXPECT_EQ((Numbers{200, 14, 65536}), chosen(1000, "7"))
      << "200 * 0.07 is more than 14 as a double";
  EXPECT_EQ((Numbers{200, 15, 65536}), chosen(1000, "7.000001"));
  EXPECT_EQ((Numbers{200, 55, 65536}), chosen(1000, "27.5"));
  EXPECT_EQ((Numbers{199, 55, 65536}), chosen(1000, "27.500001"));
  EXPECT_EQ((Numbers{63, 189, 16191}), chosen(1000, "300"));
  EXPECT_EQ((Numbers{63, 189, 315}), chosen(1000, "300", 65487));
  EXPECT_EQ((Numbers{200, 10, 20400}), chosen(1000, "5", 65487));

  for (const char* bad : {"", "0", "0.999999", "300.000001", "301", "-5", "+5", " 5", "5 ", "5,5",
                          "5.", ".5", "5.1234567", "5e1", "nan", "18446744073709551617"}) {
    EXPECT_FALSE(parse_percent(bad)) << bad;
  }
}

TEST(Layout, FindsEveryPartOfTheLargestFilesAgain) {
  const std::uint64_t most = INT64_MAX / 1380 / 256;
  for (const Code& code : {Code{1, 254, 1}, Code{254, 1, kMaxWindow}, Code{1, 1, kMaxWindow},
                           Code{200, 10, 65536}, Code{63, 189, 16191}, Code{7, 3, 5}}) {
    for (const std::uint64_t parts : {std::uint64_t{1}, std::uint64_t{65537}, most}) {
      const auto layout = CodeLayout::of(parts, 1380, code);
      ASSERT_TRUE(layout) << parts;
      for (const std::uint64_t part : {std::uint64_t{1}, parts / 2 + 1, parts}) {
        const PartPlace place = layout->data_place(part);
        EXPECT_LT(place.index, layout->columns_in(place.window, place.block));
        EXPECT_EQ(part, layout->data_part(place));
      }
      const std::uint64_t repair = layout->repair_parts();
      for (const std::uint64_t part : {std::uint64_t{1}, repair / 2 + 1, repair}) {
        const PartPlace place = layout->repair_place(part);
        EXPECT_LT(place.index, code.r);
        EXPECT_LT(place.window, layout->windows());
        EXPECT_EQ(part, layout->repair_part(place));
      }
    }
  }
  EXPECT_FALSE(CodeLayout::of(0, 1380, {1, 1, 1}));
  EXPECT_FALSE(CodeLayout::of(most * 256, 1380, {1, 254, 1})) << "no room for the repair parts";
  EXPECT_FALSE(CodeLayout::of(std::uint64_t{1} << 62, 1, {1, 4, 1})) << "2^64 repair parts";
  for (const Code& bad : {Code{0, 1, 1}, Code{1, 0, 1}, Code{255, 0, 1}, Code{200, 56, 1},
                          Code{1, 255, 1}, Code{1, 1, 0}, Code{1, 1, kMaxWindow + 1},
                          Code{UINT32_MAX, 2, 1}, Code{2, UINT32_MAX, 1}}) {
    EXPECT_FALSE(CodeLayout::of(1, 1380, bad)) << bad.k << " " << bad.r << " " << bad.window;
  }
}

}  // namespace
