// Files with holes and the repair parts of their seals, both in memory files.
#include "receiver/repair/repair.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <random>

#include "ground/owners.h"
#include "seal/code.h"

namespace {

constexpr std::uint32_t kPart = 20;

struct Sealed {
  Sealed(std::uint64_t size, const Code& code)
      : bytes(size, 0), layout(*CodeLayout::of((size + kPart - 1) / kPart, kPart, code)) {
    std::mt19937 random(1);
    for (char& byte : bytes) byte = static_cast<char>(random());
    WindowEncoder encoder(layout);
    for (std::uint64_t window = 0, at = 0; window < layout.windows(); ++window) {
      encoder.start(window);
      for (std::uint64_t i = 0; i < layout.parts_in(window); ++i, at += kPart) {
        encoder.add(reinterpret_cast<unsigned char*>(bytes.data()) + at,
                    std::min<std::size_t>(kPart, bytes.size() - at));
      }
      for (std::uint64_t t = 0; t < encoder.repair_parts(); ++t) {
        repair.append(reinterpret_cast<const char*>(encoder.repair_part(t)), kPart);
      }
    }
    parts = Ranges(1, (size + kPart - 1) / kPart);
    repair_missing = Ranges(1, layout.repair_parts());
  }

  /// Part `number` of either came.
  void data(std::uint64_t number) { come(bytes, file, number), parts.remove(number, number); }
  void row(std::uint64_t number) {
    come(repair, seal, number), repair_missing.remove(number, number);
  }
  /// Rebuilds; true if the whole file is there then.
  bool rebuild() {
    const PartialFile of_seal{seal.get(), repair.size(), repair_missing};
    rebuilt = rebuild_parts(layout, {file.get(), bytes.size(), parts}, of_seal).size();
    std::string all(bytes.size(), '\0');
    return pread(file.get(), all.data(), all.size(), 0) == static_cast<ssize_t>(all.size()) &&
           all == bytes;
  }

  static void come(const std::string& from, const Fd& to, std::uint64_t number) {
    const std::size_t at = (number - 1) * kPart;
    const std::string part = from.substr(at, kPart);
    EXPECT_EQ(static_cast<ssize_t>(part.size()),
              pwrite(to.get(), part.data(), part.size(), static_cast<off_t>(at)));
  }

  std::string bytes, repair;
  CodeLayout layout;
  Ranges parts, repair_missing;
  std::size_t rebuilt = 0;
  Fd file{memfd_create("file", MFD_CLOEXEC)}, seal{memfd_create("seal", MFD_CLOEXEC)};
};

TEST(Repair, BringsBackEveryBlockThatLacksNoMorePartsThanRepairPartsCame) {
  const Code codes[] = {{1, 1, 1}, {7, 3, 50}, {7, 3, 1000}, {20, 235, 20}};
  for (const Code& code : codes) {
    for (const std::uint64_t size : {1U, 20U, 139U, 140U, 141U, 1000U, 2011U}) {
      SCOPED_TRACE(std::to_string(code.k) + "+" + std::to_string(code.r) + " " +
                   std::to_string(size));
      Sealed all(size, code);
      std::vector<std::vector<unsigned>> lost(all.layout.windows());
      std::uint64_t kept = 0;
      for (std::uint64_t part = 1; part <= all.parts.count() + kept; ++part) {
        const PartPlace place = all.layout.data_place(part);
        auto& of_window = lost[place.window];
        of_window.resize(all.layout.blocks_in(place.window));
        if (of_window[place.block] == code.r)
          all.data(part), ++kept;
        else
          ++of_window[place.block];
      }
      for (std::uint64_t row = 1; row <= all.layout.repair_parts(); ++row) all.row(row);
      EXPECT_TRUE(all.rebuild());
    }
  }
}

TEST(Repair, LeavesABlockAloneThatLacksMore) {
  Sealed all(4 * kPart, {2, 1, 4});  // two blocks: parts 1 and 3, 2 and 4
  for (const std::uint64_t row : {1U, 2U}) all.row(row);
  all.data(1);
  EXPECT_FALSE(all.rebuild());
  EXPECT_EQ(1U, all.rebuilt);  // part 3; nothing of 2 and 4
  all.parts.remove(3, 3);
  all.data(4);
  EXPECT_TRUE(all.rebuild());
}

/// A layout may claim what it likes: only what came costs time and memory.
TEST(Repair, CostsNothingForWhatALayoutClaims) {
  const std::uint64_t parts = std::uint64_t{1} << 48;
  const auto layout = CodeLayout::of(parts, kPart, {1, 1, kMaxWindow});
  ASSERT_TRUE(layout);
  const Fd file(memfd_create("file", MFD_CLOEXEC)), seal(memfd_create("seal", MFD_CLOEXEC));
  const std::string part(kPart, 'x');
  ASSERT_EQ(kPart, pwrite(seal.get(), part.data(), kPart, 0));
  const Ranges missing(1, parts);
  Ranges seal_missing(1, layout->repair_parts());
  seal_missing.remove(1, 1);
  const PartialFile sealed{file.get(), parts * kPart, missing};
  EXPECT_EQ(1U, rebuild_parts(*layout, sealed, {seal.get(), parts * kPart, seal_missing}).size());
}

}  // namespace
