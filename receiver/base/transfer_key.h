// receiver/base/transfer_key.h: which transfer a packet belongs to.
#pragma once

#include <netinet/in.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

/// The transfer's id and where its packets come from: two senders may choose the same
/// id. Address and port are in the host's byte order, and 0 where sources do not count
/// (--ignore-source) or are not known.
struct TransferKey {
  std::uint64_t id = 0;
  std::uint32_t address = 0;  ///< IPv4
  std::uint16_t port = 0;     ///< UDP
};

inline bool operator==(const TransferKey& a, const TransferKey& b) {
  return a.id == b.id && a.address == b.address && a.port == b.port;
}
inline bool operator!=(const TransferKey& a, const TransferKey& b) { return !(a == b); }

template <>
struct std::hash<TransferKey> {
  std::size_t operator()(const TransferKey& key) const noexcept {
    const std::uint64_t source = std::uint64_t{key.address} << 16 | key.port;
    return std::hash<std::uint64_t>{}(key.id ^ source * 0x9E3779B97F4A7C15U);  // 2^64 / phi
  }
};

/// Returns the key of the transfer `id` that comes from `from`; with `ignore_source`, a key
/// with the id alone.
TransferKey transfer_key(std::uint64_t id, const sockaddr_in& from, bool ignore_source);

/// "0000000000000003-7F000001-D431": id, address and port in upper-case hexadecimal.
std::string key_text(const TransferKey& key);

/// Reads what key_text() returned; returns nothing for any other text.
std::optional<TransferKey> parse_key(const std::string& text);

/// "127.0.0.1:54321"
std::string source_text(std::uint32_t address, std::uint16_t port);

/// Returns the key of the transfer `id` and the source that source_text() wrote; address and
/// port are 0 for any other text.
TransferKey key_from(std::uint64_t id, const std::string& source);
