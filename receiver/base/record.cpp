#include "receiver/base/record.h"

namespace {

/// FNV-1a, 64 bits.
class Fnv {
 public:
  void add(unsigned char byte) { value_ = (value_ ^ byte) * 0x100000001B3U; }
  void add_number(std::uint64_t number) {
    for (int bits = 0; bits < 64; bits += 8) add(static_cast<unsigned char>(number >> bits));
  }
  /// Adds the length, too: a byte that moves from one text to the next must show.
  void add_text(const std::string& text) {
    add_number(text.size());
    for (const char c : text) add(static_cast<unsigned char>(c));
  }
  std::uint64_t value() const { return value_; }

 private:
  std::uint64_t value_ = 0xCBF29CE484222325U;
};

}  // namespace

std::uint64_t header_print(const TransferRecord& record) {
  Fnv fnv;
  fnv.add_number(record.size);
  fnv.add_number(record.udata_size);
  fnv.add_number(record.path_crc);
  fnv.add_number(static_cast<std::uint64_t>(record.send_time));
  fnv.add_number(record.file_kind);
  fnv.add_text(record.name);
  fnv.add_text(record.folder);
  return fnv.value();
}
