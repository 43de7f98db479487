#include "receiver/base/ranges.h"

#include <algorithm>
#include <charconv>
#include <iterator>

namespace {

/// Reads a number at `at` and moves behind it; false if there is none.
bool read_number(const char*& at, const char* end, std::uint64_t& number) {
  const auto [behind, failure] = std::from_chars(at, end, number);
  at = behind;
  return failure == std::errc{};
}

}  // namespace

Ranges::Ranges(std::uint64_t first, std::uint64_t last) {
  if (last < first) return;
  ranges_.emplace(first, last);
  count_ = last - first + 1;
}

bool Ranges::contains(std::uint64_t number) const {
  const auto above = ranges_.upper_bound(number);
  return above != ranges_.begin() && std::prev(above)->second >= number;
}

std::uint64_t Ranges::remove(std::uint64_t first, std::uint64_t last) {
  if (last < first) return 0;
  std::uint64_t removed = 0;
  auto it = ranges_.upper_bound(first);
  if (it != ranges_.begin() && std::prev(it)->second >= first) --it;
  while (it != ranges_.end() && it->first <= last) {
    const auto [from, to] = *it;
    removed += std::min(to, last) - std::max(from, first) + 1;
    it = from < first ? std::next(it) : ranges_.erase(it);
    if (from < first) std::prev(it)->second = first - 1;
    if (to > last) it = ranges_.emplace_hint(it, last + 1, to);
  }
  count_ -= removed;
  return removed;
}

std::string Ranges::text() const {
  std::string text;
  for (const auto& [first, last] : ranges_) {
    if (!text.empty()) text += ',';
    text += std::to_string(first);
    if (last != first) text += '-' + std::to_string(last);
  }
  return text;
}

std::optional<Ranges> Ranges::parse(const std::string& text) {
  Ranges result;
  const char* at = text.data();
  const char* const end = at + text.size();
  while (at != end) {
    std::uint64_t first = 0;
    if (!result.empty() && *at++ != ',') return std::nullopt;
    if (!read_number(at, end, first)) return std::nullopt;
    std::uint64_t last = first;
    if (at != end && *at == '-' && !read_number(++at, end, last)) return std::nullopt;
    if (last < first || last - first == UINT64_MAX) return std::nullopt;  // can't be counted
    if (!result.empty()) {  // in order, with a gap: touching ranges are one
      const std::uint64_t before = result.ranges_.rbegin()->second;
      if (first <= before || first - before == 1) return std::nullopt;
    }
    result.ranges_.emplace_hint(result.ranges_.end(), first, last);
    result.count_ += last - first + 1;
  }
  if (result.text() != text) return std::nullopt;  // "007", "5-5"
  return result;
}
