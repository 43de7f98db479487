// receiver/base/ranges.h: which parts of a file are still missing.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

/// A set of whole numbers kept as ranges; it grows with the gaps between them.
class Ranges {
 public:
  Ranges() = default;
  /// All of first..last; nothing when last < first.
  Ranges(std::uint64_t first, std::uint64_t last);

  bool contains(std::uint64_t number) const;

  /// Takes first..last out of the set; returns how many of them were in it.
  std::uint64_t remove(std::uint64_t first, std::uint64_t last);

  bool empty() const { return ranges_.empty(); }

  /// How many numbers are in the set.
  std::uint64_t count() const { return count_; }

  /// First and last number of each range, in order.
  const std::map<std::uint64_t, std::uint64_t>& all() const { return ranges_; }

  /// "1-5,9,12-20"; "" for the empty set.
  std::string text() const;

  /// Returns the set for which text() returned this text. Returns nothing for any other
  /// text, and for the set of all 64-bit numbers, which count() could not count.
  static std::optional<Ranges> parse(const std::string& text);

 private:
  std::map<std::uint64_t, std::uint64_t> ranges_;  ///< first -> last
  std::uint64_t count_ = 0;
};
