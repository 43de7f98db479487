// send/part_buffer.h: the parts of a transfer, some at a time, laid out as the datagrams
// that they become.
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
  /// Reads the `size` bytes of `content`, which must outlive it, for datagrams of
  /// `udata_size` bytes (1400..65507) that carry `transfer_id`.
  PartBuffer(Content& content, std::uint64_t size, std::uint64_t transfer_id,
             std::uint32_t udata_size);

  /// Back to the first part. Every pass begins with it.
  void rewind();

  /// True if fill() has read all parts since rewind(); at once if there are none.
  bool at_end() const { return read_ == size_; }

  /// How many parts there are, and how many of them fill() has read since rewind().
  std::uint64_t parts() const;
  std::uint64_t parts_read() const;

  /// How many full datagrams fit, at the most 64; 1 or more.
  std::size_t room() const;

  /// Reads the next `count` parts (up to room() and to the last one). Returns how many
  /// could be read whole: fewer if the content yields less.
  std::size_t fill(std::size_t count);

  /// The `i`-th datagram that was filled; all that follow stand right behind it.
  const unsigned char* datagram(std::size_t i) const { return bytes_.data() + i * udata_size_; }

  /// Its bytes, header included.
  std::size_t size(std::size_t i) const;

  /// Bytes of the content in the first `count` datagrams.
  std::uint64_t payload(std::size_t count) const;

 private:
  Content& content_;
  std::uint64_t size_;
  std::uint64_t transfer_id_;
  std::uint32_t udata_size_;
  std::uint64_t filled_from_ = 0;  ///< offset of what the first datagram carries
  std::uint64_t read_ = 0;         ///< offset of the part to read next
  std::vector<unsigned char> bytes_;
};
