#include "seal/keys.h"

#include <fcntl.h>
#include <sodium.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "ground/owners.h"
#include "ground/write_all.h"

namespace {

constexpr std::size_t kKeyDigits = 64;
using Seed = std::array<unsigned char, 32>;

/// Wipes the object from memory when it is destroyed.
template <typename T>
struct Wiped {
  Wiped() = default;
  Wiped(const Wiped&) = delete;
  Wiped& operator=(const Wiped&) = delete;
  ~Wiped() { sodium_memzero(value.data(), value.size()); }
  T value{};
};

std::string system_error(const std::string& path) { return path + ": " + std::strerror(errno); }

/// Reads 64 hexadecimal digits in either case.
bool read_key(const char* text, std::size_t size, std::array<unsigned char, 32>& key) {
  std::size_t length = 0;
  return size == kKeyDigits &&
         sodium_hex2bin(key.data(), key.size(), text, size, nullptr, &length, nullptr) == 0 &&
         length == key.size();
}

/// Writes `key` and a line feed to the new file `path`. Removes it again on failure.
bool write_key(const std::string& path, mode_t mode, const std::array<unsigned char, 32>& key,
               std::string& error) {
  const Fd file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
  if (!file) {
    error = system_error(path);
    return false;
  }
  Wiped<std::array<char, kKeyDigits + 1>> line;
  sodium_bin2hex(line.value.data(), line.value.size(), key.data(), key.size());
  line.value[kKeyDigits] = '\n';
  if (fchmod(file.get(), mode) == 0 &&
      write_all(file.get(), {line.value.data(), line.value.size()}) && fsync(file.get()) == 0) {
    return true;
  }
  error = system_error(path);
  (void)unlink(path.c_str());
  return false;
}

}  // namespace

SigningKey::SigningKey(const Seed& seed) {
  (void)crypto_sign_seed_keypair(public_key_.data(), secret_.data(), seed.data());
}

SigningKey::~SigningKey() { sodium_memzero(secret_.data(), secret_.size()); }

Signature SigningKey::sign(const std::string& message) const {
  Signature signature;
  (void)crypto_sign_detached(signature.data(), nullptr,
                             reinterpret_cast<const unsigned char*>(message.data()), message.size(),
                             secret_.data());
  return signature;
}

std::unique_ptr<const SigningKey> SigningKey::read(const std::string& path, std::string& error) {
  const Fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status {};
  if (!file || fstat(file.get(), &status) != 0) {
    error = system_error(path);
    return nullptr;
  }
  if (S_ISREG(status.st_mode) && (status.st_mode & 077U) != 0) {
    error = path + ": others than its owner may use this key; chmod 600 it";
    return nullptr;
  }
  Wiped<std::array<char, kKeyDigits + 2>>
      text;  // with a line feed, and a byte to notice longer ones
  const ssize_t got = ::read(file.get(), text.value.data(), text.value.size());
  if (got < 0) {
    error = system_error(path);
    return nullptr;
  }
  auto size = static_cast<std::size_t>(got);
  if (size == kKeyDigits + 1 && text.value[kKeyDigits] == '\n') --size;
  Wiped<Seed> seed;
  if (!S_ISREG(status.st_mode) || !read_key(text.value.data(), size, seed.value)) {
    error = path + ": not a key, which is one line of 64 hexadecimal digits";
    return nullptr;
  }
  return std::make_unique<const SigningKey>(seed.value);
}

std::string sealed_text(SealRecord record, const SigningKey* key, std::size_t room) {
  constexpr std::size_t signature_size = 5 + 2 * Signature().size();  // " sig=" and digits
  if (key != nullptr) record.key = key->public_key();
  std::string text = unsigned_text(record);
  if (text.size() + (key != nullptr ? signature_size : 0) > room) {
    record.path.reset();
    text = unsigned_text(record);
  }
  if (key == nullptr) return text;
  return text + signature_field(key->sign(signed_message(text)));
}

bool read_trusted_keys(const std::string& path, std::vector<PublicKey>& keys, std::string& error) {
  std::ifstream file(path);
  std::vector<PublicKey> found;
  std::string line;
  for (std::size_t number = 1; std::getline(file, line); ++number) {
    const std::size_t begin = line.find_first_not_of(" \t\r");
    if (begin == std::string::npos || line[begin] == '#') continue;
    const std::size_t size = line.find_first_of(" \t\r", begin) - begin;
    PublicKey key;
    if (!read_key(line.data() + begin, std::min(size, line.size() - begin), key)) {
      error = path + ", line " + std::to_string(number) +
              ": not a public key, which is 64 hexadecimal digits";
      return false;
    }
    found.push_back(key);
  }
  if (!file.eof() || file.bad()) {
    error = system_error(path);
    return false;
  }
  if (found.empty()) {
    error = path + ": no public key in it";
    return false;
  }
  keys.insert(keys.end(), found.begin(), found.end());
  return true;
}

bool make_key_files(const std::string& name, std::string& error) {
  if (sodium_init() < 0) {
    error = "no random numbers can be had from the system";
    return false;
  }
  Wiped<Seed> seed;
  randombytes_buf(seed.value.data(), seed.value.size());
  const SigningKey key(seed.value);
  if (!write_key(name + ".key", 0600, seed.value, error)) return false;
  if (write_key(name + ".pub", 0644, key.public_key(), error)) return true;
  (void)unlink((name + ".key").c_str());
  return false;
}
