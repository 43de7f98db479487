// send/part_buffer.h: parts of a file, laid out as the datagrams that they become.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "send/source_file.h"

class PartBuffer {
 public:
  /// Holds parts of datagrams of `udata_size` bytes (1400..65507) that carry
  /// `transfer_id`.
  PartBuffer(std::uint64_t transfer_id, std::uint32_t udata_size);

  /// How many full datagrams fit, at the most 64; 1 or more.
  std::size_t room() const;

  /// Reads the next `count` parts (up to room()) of `file`, which stands at the
  /// first of them, number `part_no`; `left` bytes of the file are still to come.
  /// Gives how many could be read whole: fewer if the file yields less.
  std::size_t fill(const SourceFile& file, std::uint64_t part_no, std::size_t count,
                   std::uint64_t left);

  /// The `i`-th datagram that was filled; all that follow stand right behind it.
  const unsigned char* datagram(std::size_t i) const { return bytes_.data() + i * udata_size_; }

  /// Its bytes, header included.
  std::size_t size(std::size_t i) const;

  /// File bytes in the first `count` datagrams.
  std::uint64_t payload(std::size_t count) const;

 private:
  std::uint64_t transfer_id_;
  std::uint32_t udata_size_;
  std::uint64_t left_ = 0;  ///< as given to fill()
  std::vector<unsigned char> bytes_;
};
