// Files with holes and the repair parts of their seals, both in memory files.
#include "receiver/repair/repair.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <numeric>
#include <random>

#include "ground/owners.h"
#include "seal/code.h"

namespace {

std::mt19937 dice(1);

/// A file and its seal, of which nothing came yet.
struct Sealed {
  Sealed(const CodeLayout& of, std::size_t size) : bytes(size, 0), layout(of) {
    std::generate(bytes.begin(), bytes.end(), [] { return static_cast<char>(dice()); });
    WindowEncoder encoder(layout);
    for (std::uint64_t window = 0, at = 0; window < layout.windows(); ++window) {
      encoder.start(window);
      for (std::uint64_t i = 0; i < layout.parts_in(window); ++i, at += layout.part_size()) {
        const std::string part = bytes.substr(at, layout.part_size());
        encoder.add(reinterpret_cast<const unsigned char*>(part.data()), part.size());
      }
      for (std::uint64_t t = 0; t < encoder.repair_parts(); ++t)
        repair.append(reinterpret_cast<const char*>(encoder.repair_part(t)), layout.part_size());
    }
  }
  /// A part of either comes: the rows of a block are counted on from its columns.
  void come(PartPlace place) {
    const unsigned columns = layout.columns_in(place.window, place.block);
    const bool is_data = place.index < columns;
    if (!is_data) place.index -= columns;
    const std::uint64_t number = is_data ? layout.data_part(place) : layout.repair_part(place);
    const std::size_t at = (number - 1) * layout.part_size();
    const std::string part = (is_data ? bytes : repair).substr(at, layout.part_size());
    const int to = is_data ? file.get() : seal.get();
    EXPECT_EQ(part.size(), pwrite(to, part.data(), part.size(), static_cast<off_t>(at)));
    (is_data ? missing : repair_missing).remove(number, number);
  }
  std::size_t rebuild() {
    const PartialFile of_seal{seal.get(), repair.size(), repair_missing};
    return rebuild_parts(layout, {file.get(), bytes.size(), missing}, of_seal).size();
  }
  bool is_whole() const {
    std::string all(bytes.size(), '\0');
    (void)!pread(file.get(), all.data(), all.size(), 0);
    return all == bytes;
  }

  std::string bytes, repair;
  const CodeLayout layout;
  Ranges missing{1, (bytes.size() - 1) / layout.part_size() + 1};
  Ranges repair_missing{1, layout.repair_parts()};
  const Fd file{memfd_create("file", MFD_CLOEXEC)}, seal{memfd_create("seal", MFD_CLOEXEC)};
};

TEST(Repair, BringsBackABlockOfWhichAsManyPartsCameAsItsDataHas) {
  const Code codes[] = {{1, 1, 1},     {3, 2, 10},    {5, 4, 20},     {7, 3, 50},   {7, 3, 1000},
                        {20, 235, 20}, {63, 189, 63}, {200, 10, 200}, {254, 1, 254}};
  for (const Code& code : codes) {
    for (const std::size_t size : {1U, 20U, 139U, 140U, 141U, 1000U, 1987U, 9011U}) {
      SCOPED_TRACE(testing::Message() << code.k << "+" << code.r << " " << size);
      const auto part = static_cast<std::uint32_t>(20 + size % 64);
      Sealed all(*CodeLayout::of((size + part - 1) / part, part, code), size);
      std::vector<PartPlace> late;
      std::ptrdiff_t bearable = 0;
      for (std::uint64_t window = 0; window < all.layout.windows(); ++window) {
        for (std::uint64_t block = 0; block < all.layout.blocks_in(window); ++block) {
          const unsigned columns = all.layout.columns_in(window, block);
          std::vector<unsigned> order(columns + code.r);
          std::iota(order.begin(), order.end(), 0U);
          std::shuffle(order.begin(), order.end(), dice);
          const auto lost_end = order.begin() + code.r;
          if (block % 2 == 0) {
            late.push_back({window, block, *lost_end});
          } else {
            all.come({window, block, *lost_end});
            bearable += std::count_if(order.begin(), lost_end, [=](auto i) { return i < columns; });
          }
          for (auto i = lost_end + 1; i < order.end(); ++i) all.come({window, block, *i});
        }
      }
      EXPECT_EQ(bearable, all.rebuild()) << "the others lack one more than they can bear";
      for (const PartPlace& place : late) all.come(place);
      EXPECT_EQ(all.missing.count(), all.rebuild());
      EXPECT_TRUE(all.is_whole());
    }
  }
}

/// A layout may claim what it likes: only what came costs time and memory.
TEST(Repair, CostsNothingForWhatALayoutClaims) {
  const std::uint64_t parts = std::uint64_t{1} << 48;
  const auto layout = CodeLayout::of(parts, 20, {1, 1, kMaxWindow});
  ASSERT_TRUE(layout);
  const Fd file(memfd_create("file", MFD_CLOEXEC)), seal(memfd_create("seal", MFD_CLOEXEC));
  ASSERT_EQ(0, ftruncate(seal.get(), 20));
  const Ranges missing(1, parts);
  Ranges seal_missing(1, layout->repair_parts());
  seal_missing.remove(1, 1);
  const PartialFile sealed{file.get(), parts * 20, missing};
  EXPECT_EQ(1U, rebuild_parts(*layout, sealed, {seal.get(), parts * 20, seal_missing}).size());
}

}  // namespace
