#include "send/header_packet.h"

#include <algorithm>

#include "send/code_page.h"
#include "softlib/system_log.h"
#include "state/settings.h"
#include "wire/wire_format.h"

std::string destination_path(const std::string& dst_dir, const std::string& sub) {
  return sub.empty() ? dst_dir : dst_dir + "/" + sub;
}

std::vector<unsigned char> build_header_packet(const file_info& info, const std::string& path,
                                               const std::string& pth) {
  bool name_is_cut = false;
  bool folder_is_cut = false;
  std::vector<std::string> names{fname_to_send(path.substr(path.rfind('/') + 1), name_is_cut)};
  if (!pth.empty()) names.push_back(fname_to_send(pth, folder_is_cut));
  if (name_is_cut) warn_system("the name goes out cut: " + path);
  if (folder_is_cut) warn_system("the folder goes out cut: " + pth + ", with the file " + path);
  return build_header_packet(info, names);
}

std::vector<unsigned char> build_header_packet(const file_info& info,
                                               const std::vector<std::string>& strings) {
  std::string names;
  for (const std::string& string : strings) names += string + '\0';
  names += '\0';  // the empty string that closes the list

  std::vector<unsigned char> packet(kNamesAt + names.size());
  unsigned char* const at = packet.data();
  put_header(at, info.transfer_id, 0, static_cast<std::uint32_t>(packet.size() - kHeaderSize));
  put_le(at + kFileSizeAt, static_cast<std::uint64_t>(info.file_size));
  put_le(at + kReservedAt, ~std::uint64_t{0});
  put_le(at + kUdataSizeAt, static_cast<std::uint32_t>(settings.udata_size));
  put_le(at + kPathCrcAt, static_cast<std::uint32_t>(info.path_crc));
  put_le(at + kSendTimeAt, static_cast<std::uint64_t>(info.send_time));
  put_le(at + kFileKindAt, static_cast<std::uint16_t>(info.file_kind));
  std::copy(names.begin(), names.end(), packet.begin() + kNamesAt);
  return packet;
}
