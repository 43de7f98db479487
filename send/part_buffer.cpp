#include "send/part_buffer.h"

#include <sys/uio.h>

#include <algorithm>
#include <array>

#include "send/segments.h"
#include "send/wire_format.h"

namespace {

constexpr std::size_t kWorkBufferSize = 65'536;

}  // namespace

PartBuffer::PartBuffer(std::uint64_t transfer_id, std::uint32_t udata_size)
    : transfer_id_(transfer_id), udata_size_(udata_size), bytes_(kWorkBufferSize) {}

std::size_t PartBuffer::room() const {
  return std::min<std::size_t>(kMostSegments, kMaxUdataSize / udata_size_);
}

std::size_t PartBuffer::size(std::size_t i) const {
  return kHeaderSize + payload(i + 1) - payload(i);
}

std::uint64_t PartBuffer::payload(std::size_t count) const {
  return std::min<std::uint64_t>(std::uint64_t{count} * part_size(udata_size_), left_);
}

std::size_t PartBuffer::fill(const SourceFile& file, std::uint64_t part_no, std::size_t count,
                             std::uint64_t left) {
  left_ = left;
  std::array<iovec, kMostSegments> places;
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t len = size(i) - kHeaderSize;
    unsigned char* const data = put_header(bytes_.data() + i * udata_size_, transfer_id_,
                                           part_no + i, static_cast<std::uint32_t>(len));
    places[i] = {data, len};
  }
  const std::uint64_t got = file.read(places.data(), count);
  std::size_t whole = 0;
  while (whole < count && payload(whole + 1) <= got) ++whole;
  return whole;
}
