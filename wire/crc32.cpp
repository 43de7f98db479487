#include "wire/crc32.h"

#include <array>
#include <cstdint>

namespace {

constexpr std::array<std::uint64_t, 256> make_table() {
  std::array<std::uint64_t, 256> table{};
  for (std::uint32_t i = 0; i < table.size(); ++i) {
    std::uint32_t crc = i;
    for (int bit = 0; bit < 8; ++bit) crc = (crc & 1U) != 0 ? 0xEDB88320U ^ (crc >> 1) : crc >> 1;
    table[i] = crc;
  }
  return table;
}

constexpr std::array<std::uint64_t, 256> autodintable = make_table();
static_assert(autodintable[1] == 0x77073096 && autodintable[255] == 0x2D02EF8D);

}  // namespace

unsigned long crc32(unsigned long crc, const unsigned char* data, unsigned int len) {
  for (unsigned int i = 0; i < len; ++i) {
    crc = static_cast<unsigned long>(autodintable[(crc ^ data[i]) & 0xFFU]) ^ (crc >> 8);
  }
  return crc;
}

int crc32_str(const std::string& s) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(s.data());
  return static_cast<int>(crc32(0xFFFFFFFFUL, bytes, static_cast<unsigned int>(s.size())));
}
