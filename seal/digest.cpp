#include "seal/digest.h"

ContentDigest::ContentDigest() : state_() {
  // Picks the fastest code for this machine. A failure leaves a slower one.
  static const int started = sodium_init();
  (void)started;
  (void)crypto_generichash_init(&state_, nullptr, 0, ContentHash().size());
}

void ContentDigest::add(const unsigned char* bytes, std::size_t size) {
  (void)crypto_generichash_update(&state_, bytes, size);
}

ContentHash ContentDigest::finish() {
  ContentHash hash;
  (void)crypto_generichash_final(&state_, hash.data(), hash.size());
  return hash;
}
