// What the texts on the receiver's command line mean, and the keys of its ledger and folders.
#include "receiver/values.h"

#include <cmath>

#include "fuzz/target.h"
#include "receiver/base/transfer_key.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = text_of(data, size);
  if (const auto at = to_endpoint(text)) {
    check(key_from(1, source_text(ntohl(at->sin_addr.s_addr), ntohs(at->sin_port))) ==
          transfer_key(1, *at, false));
  }
  if (const auto network = to_network(text)) {
    check((network->address & ~network->mask) == 0);
    check((~network->mask & (~network->mask + 1)) == 0);  // ones, then zeros
  }
  if (text.find('@') == std::string::npos) (void)to_membership(text);  // else it asks the system
  for (const char* unit : {"s", "d"}) {
    const auto seconds = to_seconds(text, unit);
    check(!seconds || (*seconds > 0 && std::isfinite(*seconds)));
  }
  if (const auto bytes = to_bytes(text)) check(*bytes <= INT64_MAX);
  if (const auto key = parse_key(text)) check(key_text(*key) == text);
  (void)key_from(1, text);
  return 0;
}
