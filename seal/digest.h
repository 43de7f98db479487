// seal/digest.h: BLAKE2b-256 (RFC 7693, no key) of bytes as they come.
//
//   ContentDigest digest;
//   digest.add(bytes, size);                 // for each piece
//   record.b2 = digest.finish();
#pragma once

#include <sodium.h>

#include <cstddef>

#include "seal/record.h"

class ContentDigest {
 public:
  ContentDigest();

  void add(const unsigned char* bytes, std::size_t size);

  /// Returns the digest of all that was added. Nothing may be called afterwards.
  ContentHash finish();

 private:
  crypto_generichash_state state_;
};
