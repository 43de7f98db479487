// fuzz/target.h: what the targets share.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

/// Called by libFuzzer, or by replay.cpp, with each input. Returns 0.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/// Ends the run, with the input kept, where something that must hold does not.
inline void check(bool holds) {
  if (!holds) std::abort();
}

/// The input as text.
inline std::string text_of(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

/// The pieces between the bytes `separator`; at least one.
inline std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> pieces;
  for (std::size_t at = 0; at <= text.size();) {
    const std::size_t end = std::min(text.find(separator, at), text.size());
    pieces.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  return pieces;
}

/// Takes numbers and texts off the front of an input; 0 and "" behind its end.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : at_(data), end_(data + size) {}

  bool empty() const { return at_ == end_; }

  std::uint8_t byte() { return empty() ? std::uint8_t{0} : *at_++; }

  /// Lowest byte first.
  std::uint64_t number(unsigned bytes) {
    std::uint64_t value = 0;
    for (unsigned i = 0; i < bytes; ++i) value |= std::uint64_t{byte()} << (8 * i);
    return value;
  }

  /// Up to `size` bytes.
  std::string text(std::size_t size) {
    const std::size_t left = static_cast<std::size_t>(end_ - at_);
    const auto* bytes = reinterpret_cast<const char*>(at_);
    at_ += std::min(size, left);
    return {bytes, std::min(size, left)};
  }

  std::string rest() { return text(SIZE_MAX); }

 private:
  const std::uint8_t* at_;
  const std::uint8_t* end_;
};
