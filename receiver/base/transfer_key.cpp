#include "receiver/base/transfer_key.h"

#include <arpa/inet.h>

#include <charconv>

#include "receiver/base/hex.h"

namespace {

constexpr std::size_t kAddressAt = 17;
constexpr std::size_t kPortAt = 26;

/// The number that `text` from `at` on holds in base `base`, 0 for anything else.
template <typename T>
T number_at(const std::string& text, std::size_t at, int base) {
  T number = 0;
  if (at < text.size()) std::from_chars(text.data() + at, text.data() + text.size(), number, base);
  return number;
}

}  // namespace

TransferKey transfer_key(std::uint64_t id, const sockaddr_in& from, bool ignore_source) {
  if (ignore_source) return {id, 0, 0};
  return {id, ntohl(from.sin_addr.s_addr), ntohs(from.sin_port)};
}

std::string key_text(const TransferKey& key) {
  return hex(key.id) + "-" + hex(key.address, 8) + "-" + hex(key.port, 4);
}

std::optional<TransferKey> parse_key(const std::string& text) {
  const TransferKey key{number_at<std::uint64_t>(text, 0, 16),
                        number_at<std::uint32_t>(text, kAddressAt, 16),
                        number_at<std::uint16_t>(text, kPortAt, 16)};
  if (key_text(key) != text) return {};
  return key;
}

std::string source_text(std::uint32_t address, std::uint16_t port) {
  const in_addr wire{htonl(address)};
  char text[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &wire, text, sizeof text);
  return std::string(text) + ":" + std::to_string(port);
}

TransferKey key_from(std::uint64_t id, const std::string& source) {
  const std::size_t colon = source.rfind(':');
  in_addr address{};
  if (colon == std::string::npos ||
      inet_pton(AF_INET, source.substr(0, colon).c_str(), &address) != 1)
    return {id, 0, 0};
  return {id, ntohl(address.s_addr), number_at<std::uint16_t>(source, colon + 1, 10)};
}
