// seal/code.h: computes repair parts from a file's parts, and lost parts from both.
//
// Reed-Solomon over GF(2^8), Cauchy rows; the arithmetic is ISA-L's. A window's
// parts are laid out by CodeLayout.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "seal/layout.h"

/// Computes the repair parts of a file, one window after the other:
///
///   WindowEncoder encoder(layout);
///   for each window:
///     encoder.start(window);
///     for each part of it:  encoder.add(bytes, size);
///     for each t below encoder.repair_parts():  encoder.repair_part(t) ...
///
/// It keeps the repair parts of one window in memory, and no part of the file. With a
/// code that choose_code() returned they take kMaxWindowRepair bytes at most.
class WindowEncoder {
 public:
  explicit WindowEncoder(const CodeLayout& layout);

  /// Begins with window `window` (0 to layout.windows() - 1) and forgets the last.
  void start(std::uint64_t window);

  /// Takes the window's next part. `size` is layout.part_size(), or less for the
  /// file's last part, which counts as filled up with zeros.
  void add(const unsigned char* bytes, std::size_t size);

  /// Returns how many repair parts the window has: blocks times rows.
  std::uint64_t repair_parts() const { return blocks_ * rows_; }

  /// Returns the bytes of these parts, which lie one behind the other; 0 before the
  /// first start().
  std::uint64_t size() const { return repair_.size(); }

  /// Returns repair part `t` (from 0) of the window, which has layout.part_size()
  /// bytes. Call it when all parts of the window were added. Valid until the next
  /// start().
  const unsigned char* repair_part(std::uint64_t t) const {
    return repair_.data() + t * part_size_;
  }

 private:
  CodeLayout layout_;
  std::size_t part_size_;
  std::size_t rows_;
  std::uint64_t blocks_ = 0;
  std::uint64_t next_ = 0;  ///< the window's part that comes next, from 0
  std::vector<unsigned char> tables_;
  std::vector<unsigned char> repair_;
  std::vector<unsigned char*> block_rows_;  ///< the rows of the block that is added to
};

/// Rebuilds the lost data parts of one block. `data` has one pointer for each
/// column that the file reaches, `repair` one for each row; each points at
/// `part_size` bytes (the file's short last part filled up with zeros), or is null
/// if the part was lost. Returns the bytes of the lost columns one behind the other,
/// in their order. Returns no bytes if no column was lost, or if more were lost than
/// repair parts came.
std::vector<unsigned char> rebuild_block(const Code& code, std::size_t part_size,
                                         const std::vector<const unsigned char*>& data,
                                         const std::vector<const unsigned char*>& repair);
