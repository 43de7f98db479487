#include "send/part_buffer.h"

#include <algorithm>
#include <cstring>

#include "send/segments.h"
#include "wire/wire_format.h"

namespace {

constexpr std::size_t kWorkBufferSize = 65'536;

}  // namespace

PartBuffer::PartBuffer(Content& content, std::uint64_t size, std::uint64_t transfer_id,
                       std::uint32_t udata_size)
    : content_(content),
      size_(size),
      transfer_id_(transfer_id),
      udata_size_(udata_size),
      bytes_(kWorkBufferSize) {}

void PartBuffer::rewind() {
  content_.rewind();
  filled_from_ = read_ = 0;
}

std::uint64_t PartBuffer::parts() const { return part_count(size_, udata_size_); }

std::uint64_t PartBuffer::parts_read() const { return part_count(read_, udata_size_); }

std::size_t PartBuffer::room() const {
  return std::min<std::size_t>(kMostSegments, kMaxUdataSize / udata_size_);
}

std::size_t PartBuffer::size(std::size_t i) const {
  return kHeaderSize + payload(i + 1) - payload(i);
}

std::uint64_t PartBuffer::payload(std::size_t count) const {
  return std::min<std::uint64_t>(std::uint64_t{count} * part_size(udata_size_),
                                 size_ - filled_from_);
}

std::size_t PartBuffer::fill(std::size_t count) {
  filled_from_ = read_;
  const std::uint64_t part_no = parts_read() + 1;
  const std::uint64_t part = part_size(udata_size_);
  const std::uint64_t wanted = payload(count);
  // One read puts all parts where the last one belongs; the others are then moved
  // forward. For the kernel that is less work than a readv() to as many places.
  unsigned char* from = bytes_.data() + count * kHeaderSize;
  const std::uint64_t got = content_.read(from, wanted);
  const std::size_t whole = got == wanted ? count : static_cast<std::size_t>(got / part);
  for (std::size_t i = 0; i < whole; ++i, from += part) {
    const std::uint64_t len = std::min(part, wanted - i * part);
    unsigned char* const packet = bytes_.data() + i * udata_size_;
    if (packet + kHeaderSize != from) std::memmove(packet + kHeaderSize, from, len);
    put_header(packet, transfer_id_, part_no + i, static_cast<std::uint32_t>(len));
  }
  read_ += payload(whole);
  return whole;
}
