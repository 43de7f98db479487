// send/part_buffer.h: reads the parts of a transfer, a few at a time, and lays them out as
// datagrams.
//
//   for (parts.rewind(); !parts.at_end();) {
//     const std::size_t count = parts.fill(parts.room());
//     ...                       // send datagram(0) to datagram(count - 1)
//   }
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "send/content.h"

class PartBuffer {
 public:
  /// Will read the `size` bytes of `content`, which must outlive this object, for
  /// datagrams of `udata_size` bytes (1400..65507) that carry `transfer_id`.
  PartBuffer(Content& content, std::uint64_t size, std::uint64_t transfer_id,
             std::uint32_t udata_size);

  /// Goes back to the first part. Every pass begins with this call.
  void rewind();

  /// True if fill() has read all parts since rewind(), or if there are none.
  bool at_end() const { return read_ == size_; }

  /// Return how many parts there are, and how many of them fill() has read since rewind().
  std::uint64_t parts() const;
  std::uint64_t parts_read() const;

  /// Returns how many full datagrams fit: 1 to 64.
  std::size_t room() const;

  /// Reads the next `count` parts; there must be room() for them, and as many left.
  /// Returns how many of them are complete: fewer than `count` if the content ends early.
  std::size_t fill(std::size_t count);

  /// Returns the `i`-th datagram that was filled (from 0); the next ones lie right behind it.
  const unsigned char* datagram(std::size_t i) const { return bytes_.data() + i * udata_size_; }

  /// Returns the bytes of the `i`-th datagram, header included.
  std::size_t size(std::size_t i) const;

  /// Returns the bytes of the content in the first `count` datagrams.
  std::uint64_t payload(std::size_t count) const;

 private:
  Content& content_;
  std::uint64_t size_;
  std::uint64_t transfer_id_;
  std::uint32_t udata_size_;
  std::uint64_t filled_from_ = 0;  ///< offset of the first datagram's part
  std::uint64_t read_ = 0;         ///< offset of the part to read next
  std::vector<unsigned char> bytes_;
};
