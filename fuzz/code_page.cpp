// A name at the sender, in any character set, on its way to the receiver: the first byte
// says which set, the rest is the name. Where nothing was cut, and the set can say it, the
// receiver gets the same name.
#include "send/code_page.h"

#include "fuzz/target.h"
#include "receiver/base/names.h"
#include "receiver/take/datagram.h"
#include "send/header_packet.h"
#include "state/settings.h"

namespace {

const std::string kCharsets[] = {"cp1251", "UTF-8",       "KOI8-R", "ISO-8859-5", "CP866",
                                 "EUC-JP", "ISO-2022-JP", "UTF-16", "none"};

/// Sets in which each character of the code page has one way of writing.
bool is_reversible(const std::string& charset) { return charset == "UTF-8" || charset == "cp1251"; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::string charset = kCharsets[input.byte() % std::size(kCharsets)];
  settings.lcs = charset;
  const std::string name = input.rest();
  bool cut = false;
  const std::string sent = fname_to_send(name, cut);
  check(sent.find('\0') == std::string::npos);
  if (sent.empty()) return 0;  // which no name is
  file_info info;
  info.transfer_id = 1;
  const std::vector<unsigned char> packet = build_header_packet(info, {sent});
  const Datagram datagram = parse_datagram(packet.data(), packet.size());
  const auto* header = std::get_if<HeaderPacket>(&datagram);
  check(header != nullptr && header->name == sent && header->folder.empty());
  if (cut || !is_reversible(charset) || name.find_first_of(std::string("%\0", 2)) != name.npos) {
    return 0;
  }
  check(from_wire(header->name, charset) == name);
  return 0;
}
