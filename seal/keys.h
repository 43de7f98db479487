// seal/keys.h: the files that hold keys, and signing with one.
//
// NAME.key holds the 32 bytes of an Ed25519 seed, NAME.pub the 32 bytes of its
// public key, each in hexadecimal on a line of its own.
#pragma once

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "seal/record.h"

/// A key that signs. The destructor wipes its secret from memory.
class SigningKey {
 public:
  /// Reads a key file. Returns null if the file can't be read, holds anything but one
  /// line of 64 hexadecimal digits, or grants a permission to anyone but its owner;
  /// `error` then says why and names the file.
  static std::unique_ptr<const SigningKey> read(const std::string& path, std::string& error);

  explicit SigningKey(const std::array<unsigned char, 32>& seed);
  SigningKey(const SigningKey&) = delete;
  SigningKey& operator=(const SigningKey&) = delete;
  ~SigningKey();

  const PublicKey& public_key() const { return public_key_; }
  Signature sign(const std::string& message) const;

 private:
  PublicKey public_key_{};
  std::array<unsigned char, 64> secret_{};
};

/// Returns the record's whole text, without a signature if `key` is null. The true
/// name is left out if the text would otherwise be longer than `room` bytes.
std::string sealed_text(SealRecord record, const SigningKey* key, std::size_t room);

/// Reads a file of public keys: each line begins with one, words of description may
/// follow it; empty lines and those that begin with "#" are skipped. Returns false if
/// the file can't be read, a line is malformed or there is no key at all; `error` then
/// says why, with the number of the line, and `keys` does not change.
bool read_trusted_keys(const std::string& path, std::vector<PublicKey>& keys, std::string& error);

/// Makes a new pair of keys: `name`.key (mode 0600) and `name`.pub (mode 0644).
/// Returns false, with the reason in `error`, if either exists already or can't be
/// written; no file is then left behind.
bool make_key_files(const std::string& name, std::string& error);
