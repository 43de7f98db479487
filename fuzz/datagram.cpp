// One datagram. What is read is laid out again alike.
#include "receiver/take/datagram.h"

#include "fuzz/target.h"
#include "wire/wire_format.h"

namespace {

void check_part(const DataPacket& part, const std::uint8_t* data, std::size_t size) {
  check(part.part_no > 0 && part.len > 0);
  check(part.data == data + kHeaderSize && part.len == size - kHeaderSize);
}

void check_header(const HeaderPacket& header, const std::uint8_t* data, std::size_t size) {
  check(header.size <= INT64_MAX);
  check(header.udata_size >= kMinUdataSize && header.udata_size <= kMaxUdataSize);
  const std::uint64_t parts = part_count(header.size, header.udata_size);
  check(parts == 0 || (parts - 1) * part_size(header.udata_size) < header.size);
  const std::string names = text_of(data + kNamesAt, size - kNamesAt);
  std::string again = header.name + '\0';
  if (names != again + '\0') again += header.folder + '\0';
  if (header.file_kind == kKindSeal) again += header.record + '\0';
  check(names == again + '\0');
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Datagram datagram = parse_datagram(data, size);
  if (const auto* part = std::get_if<DataPacket>(&datagram)) check_part(*part, data, size);
  if (const auto* header = std::get_if<HeaderPacket>(&datagram)) check_header(*header, data, size);
  if (std::get_if<ServicePacket>(&datagram) != nullptr) check(size == kServicePacketSize);
  return 0;
}
