#include "receiver/take/datagram.h"

#include <optional>
#include <utility>

#include "wire/wire_format.h"

namespace {

/// Takes the text before the next NUL and the NUL itself off the front.
std::optional<std::string> take_text(std::string& names) {
  const std::size_t end = names.find('\0');
  if (end == std::string::npos) return std::nullopt;
  std::string text = names.substr(0, end);
  names.erase(0, end + 1);
  return text;
}

/// "name NUL NUL" or "name NUL folder NUL NUL", in a seal "name NUL folder NUL record NUL
/// NUL"; and nothing behind.
bool parse_names(std::string names, HeaderPacket& header) {
  const std::string list_end(1, '\0');
  for (std::string* text : {&header.name, &header.folder, &header.record}) {
    if (text == &header.record && header.file_kind != kKindSeal) return false;
    std::optional<std::string> taken = take_text(names);
    if (!taken) return false;
    *text = std::move(*taken);
    if (names == list_end) return text == &header.record || header.file_kind != kKindSeal;
  }
  return false;
}

Datagram parse_service(const unsigned char* bytes, std::size_t size) {
  if (size != kServicePacketSize) return {};
  return ServicePacket{get_le<std::uint64_t>(bytes + kAllSendCntAt),
                       get_le<std::uint64_t>(bytes + kSendCntAt)};
}

Datagram parse_header(const unsigned char* bytes, std::size_t size) {
  if (size < kNamesAt) return {};
  HeaderPacket header;
  header.id = get_le<std::uint64_t>(bytes + kTransferIdAt);
  header.size = get_le<std::uint64_t>(bytes + kFileSizeAt);
  header.udata_size = get_le<std::uint32_t>(bytes + kUdataSizeAt);
  header.path_crc = get_le<std::uint32_t>(bytes + kPathCrcAt);
  header.send_time = static_cast<std::int64_t>(get_le<std::uint64_t>(bytes + kSendTimeAt));
  header.file_kind = get_le<std::uint16_t>(bytes + kFileKindAt);
  const bool size_fits = header.size <= static_cast<std::uint64_t>(INT64_MAX);
  const bool part_fits = header.udata_size >= kMinUdataSize && header.udata_size <= kMaxUdataSize;
  const bool reserved = get_le<std::uint64_t>(bytes + kReservedAt) == ~std::uint64_t{0};
  const auto* names = reinterpret_cast<const char*>(bytes) + kNamesAt;
  if (!size_fits || !part_fits || !reserved || !parse_names({names, size - kNamesAt}, header)) {
    return {};
  }
  return header;
}

}  // namespace

Datagram parse_datagram(const unsigned char* bytes, std::size_t size) {
  if (size < kHeaderSize) return {};
  const auto id = get_le<std::uint64_t>(bytes + kTransferIdAt);
  const auto part_no = get_le<std::uint64_t>(bytes + kPartNoAt);
  const std::size_t len = size - kHeaderSize;
  if (get_le<std::uint32_t>(bytes + kDataLenAt) != len) return {};
  if (id == kServiceId) return parse_service(bytes, size);
  if (part_no == 0) return parse_header(bytes, size);
  if (len == 0) return {};
  return DataPacket{id, part_no, bytes + kHeaderSize, len};
}
