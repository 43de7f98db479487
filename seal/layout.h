// seal/layout.h: tells which repair parts protect which parts of the file.
//
//   const Code code = choose_code(parts, percent, udata_size);
//   const auto layout = CodeLayout::of(parts, part_size(udata_size), code);
//   const PartPlace place = layout->data_place(part_no);
//
// The file's parts fall into windows, a window's parts into blocks, column by
// column: neighbours on the line lie in different blocks. docs/wire-format.md
// describes it. Parts are numbered from 1 as on the wire; windows, blocks,
// columns and rows from 0. All numbers are 64 bits wide, and none overflows for
// any layout that CodeLayout::of() returned.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// A Reed-Solomon code: `k` data and `r` repair parts in a block, blocks
/// interleaved over `window` parts of the file.
struct Code {
  unsigned k = 0;            ///< 1 to 254
  unsigned r = 0;            ///< 1 to 255 - k
  std::uint64_t window = 0;  ///< 1 to 2^32
};

constexpr unsigned kMaxBlockParts = 255;  ///< k + r: GF(2^8) has no more non-zero points
constexpr std::uint64_t kMaxWindow = std::uint64_t{1} << 32;

/// Bytes that the repair parts of one window take at most with the code that
/// choose_code() returns.
constexpr std::uint64_t kMaxWindowRepair = std::uint64_t{64} << 20;

/// A percentage in millionths of a percent, so that the code's numbers are exact.
using Percent = std::uint64_t;
constexpr Percent kOnePercent = 1'000'000;

/// Reads 1 to 300 percent: digits, then possibly a point and one to six digits,
/// whatever the locale. Returns nothing for any other text.
std::optional<Percent> parse_percent(const std::string& text);

/// Returns the code for a file of `parts` (at least 1) parts of `part_size` bytes
/// (1 to 65,487) with `percent` (1 to 300 percent) of repair parts.
Code choose_code(std::uint64_t parts, Percent percent, std::uint32_t part_size);

/// Where a part stands: `index` is the column of a data part, the row of a repair part.
struct PartPlace {
  std::uint64_t window;
  std::uint64_t block;
  unsigned index;
};

class CodeLayout {
 public:
  /// Lays `parts` parts of `part_size` bytes out for `code`. Returns nothing where
  /// `code` is out of range, `parts` is 0, or the file or its repair parts would
  /// be larger than 2^63 - 1 bytes.
  static std::optional<CodeLayout> of(std::uint64_t parts, std::uint32_t part_size,
                                      const Code& code);

  const Code& code() const { return code_; }
  std::uint32_t part_size() const { return part_size_; }

  std::uint64_t windows() const { return ceil_div(parts_, code_.window); }
  std::uint64_t repair_parts() const;

  /// The file's parts in window `window`, and the number of its first one.
  std::uint64_t parts_in(std::uint64_t window) const;
  std::uint64_t first_part(std::uint64_t window) const { return window * code_.window + 1; }

  /// The blocks of window `window`. It has `blocks_in() * code().r` repair parts.
  std::uint64_t blocks_in(std::uint64_t window) const;
  std::uint64_t first_repair_part(std::uint64_t window) const;

  /// How many columns of a block the file reaches: 1 to k. The others are zeros.
  unsigned columns_in(std::uint64_t window, std::uint64_t block) const;

  /// The place of data part `part_no` (1 to the file's parts) and of repair part
  /// `part_no` (1 to repair_parts()), and back.
  PartPlace data_place(std::uint64_t part_no) const;
  PartPlace repair_place(std::uint64_t part_no) const;
  std::uint64_t data_part(const PartPlace& place) const;
  std::uint64_t repair_part(const PartPlace& place) const;

 private:
  CodeLayout(std::uint64_t parts, std::uint32_t part_size, const Code& code)
      : parts_(parts), part_size_(part_size), code_(code) {}
  static std::uint64_t ceil_div(std::uint64_t a, std::uint64_t b) { return a / b + (a % b != 0); }

  std::uint64_t parts_;
  std::uint32_t part_size_;
  Code code_;
};
