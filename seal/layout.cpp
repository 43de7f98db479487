#include "seal/layout.h"

#include <algorithm>
#include <charconv>

namespace {

constexpr Percent kHundredPercent = 100 * kOnePercent;
constexpr std::uint64_t kUsualBlock = 200;  // larger blocks cost more time than they save parts
constexpr std::uint64_t kFewestRepair = 4;  // a short file's one block must bear a few losses
constexpr std::uint64_t kUsualWindow = 65536;
constexpr std::uint64_t kMaxFileSize = INT64_MAX;  // `file_size` on the wire is signed

std::optional<std::uint64_t> digits(const std::string& text) {
  std::uint64_t value = 0;
  const char* end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, value);
  if (read.ec != std::errc() || read.ptr != end) return std::nullopt;
  return value;
}

}  // namespace

std::optional<Percent> parse_percent(const std::string& text) {
  const std::size_t point = text.find('.');
  const auto whole = digits(text.substr(0, point));
  if (!whole || *whole > 300) return std::nullopt;
  Percent percent = *whole * kOnePercent;
  if (point != std::string::npos) {
    std::string decimals = text.substr(point + 1);
    if (decimals.empty() || decimals.size() > 6) return std::nullopt;
    decimals.resize(6, '0');
    const auto millionths = digits(decimals);
    if (!millionths) return std::nullopt;
    percent += *millionths;
  }
  if (percent < kOnePercent || percent > 300 * kOnePercent) return std::nullopt;
  return percent;
}

Code choose_code(std::uint64_t parts, Percent percent, std::uint32_t part_size) {
  // k + k * percent must not exceed 255
  const std::uint64_t fitting = kMaxBlockParts * kHundredPercent / (kHundredPercent + percent);
  const std::uint64_t k = std::min({parts, kUsualBlock, fitting});
  const std::uint64_t asked = (k * percent + kHundredPercent - 1) / kHundredPercent;
  const std::uint64_t r = std::max(asked, std::min(kFewestRepair, kMaxBlockParts - k));
  const std::uint64_t blocks = kMaxWindowRepair / (r * part_size);  // 5 or more
  return {static_cast<unsigned>(k), static_cast<unsigned>(r), std::min(kUsualWindow, blocks * k)};
}

std::optional<CodeLayout> CodeLayout::of(std::uint64_t parts, std::uint32_t part_size,
                                         const Code& code) {
  if (code.k < 1 || code.k >= kMaxBlockParts || code.r < 1 || code.r > kMaxBlockParts - code.k) {
    return std::nullopt;
  }
  if (code.window < 1 || code.window > kMaxWindow) return std::nullopt;
  if (parts < 1 || part_size < 1 || parts - 1 > kMaxFileSize / part_size) return std::nullopt;
  // keeps repair_parts() below (2 * parts + 2^33) * 254, so that it can't overflow
  if (parts > kMaxFileSize / 1024) return std::nullopt;
  const CodeLayout layout(parts, part_size, code);
  if (layout.repair_parts() > kMaxFileSize / part_size) return std::nullopt;
  return layout;
}

std::uint64_t CodeLayout::parts_in(std::uint64_t window) const {
  return std::min(code_.window, parts_ - window * code_.window);
}

std::uint64_t CodeLayout::blocks_in(std::uint64_t window) const {
  return ceil_div(parts_in(window), code_.k);
}

std::uint64_t CodeLayout::first_repair_part(std::uint64_t window) const {
  // all windows before this one are whole
  return window * ceil_div(code_.window, code_.k) * code_.r + 1;
}

std::uint64_t CodeLayout::repair_parts() const {
  const std::uint64_t last = windows() - 1;
  return first_repair_part(last) - 1 + blocks_in(last) * code_.r;
}

unsigned CodeLayout::columns_in(std::uint64_t window, std::uint64_t block) const {
  return static_cast<unsigned>(ceil_div(parts_in(window) - block, blocks_in(window)));
}

PartPlace CodeLayout::data_place(std::uint64_t part_no) const {
  const std::uint64_t window = (part_no - 1) / code_.window;
  const std::uint64_t in_window = part_no - first_part(window);
  const std::uint64_t blocks = blocks_in(window);
  return {window, in_window % blocks, static_cast<unsigned>(in_window / blocks)};
}

PartPlace CodeLayout::repair_place(std::uint64_t part_no) const {
  const std::uint64_t whole = ceil_div(code_.window, code_.k) * code_.r;
  const std::uint64_t window = (part_no - 1) / whole;
  const std::uint64_t in_window = part_no - first_repair_part(window);
  const std::uint64_t blocks = blocks_in(window);
  return {window, in_window % blocks, static_cast<unsigned>(in_window / blocks)};
}

std::uint64_t CodeLayout::data_part(const PartPlace& place) const {
  return first_part(place.window) + place.index * blocks_in(place.window) + place.block;
}

std::uint64_t CodeLayout::repair_part(const PartPlace& place) const {
  return first_repair_part(place.window) + place.index * blocks_in(place.window) + place.block;
}
