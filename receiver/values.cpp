#include "receiver/values.h"

#include <arpa/inet.h>
#include <net/if.h>

#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <string_view>
#include <system_error>
#include <utility>

namespace {

std::optional<unsigned long> to_number(const std::string& text, unsigned long most) {
  if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) return {};
  const unsigned long number = std::strtoul(text.c_str(), nullptr, 10);
  if (text.size() > 10 || number > most) return {};
  return number;
}

}  // namespace

std::optional<sockaddr_in> to_endpoint(const std::string& text) {
  const std::size_t colon = text.rfind(':');
  const std::string address = colon == std::string::npos ? "0.0.0.0" : text.substr(0, colon);
  const auto port = to_number(text.substr(colon == std::string::npos ? 0 : colon + 1), 65535);
  sockaddr_in at{};
  at.sin_family = AF_INET;
  if (!port || inet_pton(AF_INET, address.c_str(), &at.sin_addr) != 1) return {};
  at.sin_port = htons(static_cast<std::uint16_t>(*port));
  return at;
}

std::optional<Network> to_network(const std::string& text) {
  const std::size_t slash = text.find('/');
  const auto bits = slash == std::string::npos ? 32UL : to_number(text.substr(slash + 1), 32);
  in_addr address{};
  if (!bits || inet_pton(AF_INET, text.substr(0, slash).c_str(), &address) != 1) return {};
  const std::uint32_t mask = *bits == 0 ? 0 : ~std::uint32_t{0} << (32 - *bits);
  return Network{ntohl(address.s_addr) & mask, mask};
}

std::optional<ip_mreqn> to_membership(const std::string& text) {
  const std::size_t at = text.find('@');
  ip_mreqn membership{};
  if (inet_pton(AF_INET, text.substr(0, at).c_str(), &membership.imr_multiaddr) != 1 ||
      !IN_MULTICAST(ntohl(membership.imr_multiaddr.s_addr))) {
    return {};
  }
  if (at == std::string::npos) return membership;
  membership.imr_ifindex = static_cast<int>(if_nametoindex(text.substr(at + 1).c_str()));
  return membership.imr_ifindex == 0 ? std::nullopt : std::optional<ip_mreqn>(membership);
}

std::optional<double> to_seconds(const std::string& text, const std::string& unit) {
  constexpr std::pair<const char*, double> kUnits[] = {
      {"ms", 0.001}, {"s", 1}, {"min", 60}, {"h", 3600}, {"d", 86400}};
  // strtod() knows more than numbers
  if (text.empty() || text.find_first_of("xXnNiI") < text.find_first_of("smhd")) return {};
  char* end = nullptr;
  const double number = std::strtod(text.c_str(), &end);
  const std::string written = end;
  for (const auto& [name, seconds] : kUnits) {
    if ((written.empty() ? unit : written) != name) continue;
    const double value = number * seconds;
    if (value > 0 && std::isfinite(value)) return value;
  }
  return {};
}

std::optional<std::uint64_t> to_bytes(const std::string& text) {
  constexpr std::string_view kUnits = "KMGT";
  constexpr std::uint64_t kMost = INT64_MAX;
  std::uint64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [behind, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc()) return {};
  std::string unit(behind, end);
  for (char& c : unit) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  unsigned shift = 0;
  if (const std::size_t at = kUnits.find(unit[0]); !unit.empty() && at < kUnits.size()) {
    shift = 10 * static_cast<unsigned>(at + 1);
    unit.erase(0, 1);
    if (unit == "IB") unit = "B";
  }
  if ((!unit.empty() && unit != "B") || number > kMost >> shift) return {};
  return number << shift;
}
