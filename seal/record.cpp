#include "seal/record.h"

#include <sodium.h>

#include <algorithm>
#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <limits>
#include <utility>

#include "seal/percent.h"
#include "wire/wire_format.h"

namespace {

enum Field {
  kSeal,
  kOf,
  kKind,
  kSize,
  kUdata,
  kSent,
  kCrc,
  kB2,
  kMtime,
  kMode,
  kName,
  kFolder,
  kK,
  kR,
  kWindow,
  kKey,
  kSig,
  kFieldCount
};

constexpr std::array<std::string_view, kFieldCount> kKeys = {
    "seal", "of",   "kind",   "size", "udata", "sent",   "crc", "b2", "mtime",
    "mode", "name", "folder", "k",    "r",     "window", "key", "sig"};

constexpr std::string_view kSignatureField = " sig=";

/// The values as they stand in the text; one that is absent has no data.
using Values = std::array<std::string_view, kFieldCount>;

bool printable(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c < 127; });
}

/// Splits `text` at its blanks. Returns false if a field has no key, comes twice, out of
/// order or behind the signature.
bool split(std::string_view text, Values& values) {
  std::size_t next = kSeal;  // fields before this one may not come any more
  while (true) {
    const std::string_view field = text.substr(0, text.find(' '));
    const std::size_t equals = field.find('=');
    if (equals == 0 || equals == std::string_view::npos || !printable(field)) return false;
    const auto* const key = std::find(kKeys.begin(), kKeys.end(), field.substr(0, equals));
    const auto index = static_cast<std::size_t>(key - kKeys.begin());
    if (next == kSeal && index != kSeal) return false;
    if (next == kFieldCount) return false;
    if (index < kFieldCount) {
      if (index < next) return false;
      values[index] = field.substr(equals + 1);
      next = index + 1;
    }
    if (field.size() == text.size()) return true;
    text.remove_prefix(field.size() + 1);
  }
}

bool all_there(const Values& values, Field first, Field last) {
  return std::all_of(values.begin() + first, values.begin() + last + 1,
                     [](std::string_view value) { return value.data() != nullptr; });
}

bool none_there(const Values& values, Field first, Field last) {
  return std::all_of(values.begin() + first, values.begin() + last + 1,
                     [](std::string_view value) { return value.data() == nullptr; });
}

template <typename T>
std::string decimal(T value) {
  return std::to_string(value);
}

std::string upper_hex(std::uint64_t value, int digits) {
  std::array<char, 17> text{};
  (void)std::snprintf(text.data(), text.size(), "%0*" PRIX64, digits, value);
  return text.data();
}

std::string octal_mode(std::uint32_t mode) {
  std::array<char, 12> text{};
  (void)std::snprintf(text.data(), text.size(), "%04" PRIo32, mode);
  return text.data();
}

std::string nine_digits(std::uint32_t nanoseconds) {
  std::array<char, 11> text{};
  (void)std::snprintf(text.data(), text.size(), "%09" PRIu32, nanoseconds);
  return text.data();
}

template <std::size_t N>
std::string lower_hex(const std::array<unsigned char, N>& bytes) {
  std::array<char, 2 * N + 1> text{};
  return sodium_bin2hex(text.data(), text.size(), bytes.data(), bytes.size());
}

/// Reads a whole number up to `most`. A value may be written in one way only, which is
/// checked, here and below, by writing it again.
template <typename T>
bool read_number(std::string_view text, T most, int base, T& value) {
  const char* end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, value, base);
  return read.ec == std::errc() && read.ptr == end && value <= most;
}

template <typename T>
bool read_decimal(std::string_view text, T most, T& value) {
  return read_number(text, most, 10, value) && decimal(value) == text;
}

template <typename T>
bool read_upper_hex(std::string_view text, int digits, T& value) {
  return read_number(text, std::numeric_limits<T>::max(), 16, value) &&
         upper_hex(value, digits) == text;
}

template <std::size_t N>
bool read_lower_hex(std::string_view text, std::array<unsigned char, N>& bytes) {
  std::size_t length = 0;
  if (text.size() != 2 * N) return false;
  if (sodium_hex2bin(bytes.data(), N, text.data(), text.size(), nullptr, &length, nullptr) != 0) {
    return false;
  }
  return length == N && lower_hex(bytes) == text;
}

bool read_mtime(std::string_view text, SealRecord& record) {
  const std::size_t point = text.find('.');
  if (point == std::string_view::npos) return false;
  const std::string_view seconds = text.substr(0, point), fraction = text.substr(point + 1);
  return read_decimal(seconds, INT64_MAX, record.mtime_s) &&
         read_number(fraction, 999'999'999U, 10, record.mtime_ns) &&
         nine_digits(record.mtime_ns) == fraction;
}

bool read_path(const Values& values, SealRecord& record) {
  if (none_there(values, kName, kFolder)) return true;
  if (!all_there(values, kName, kFolder)) return false;
  TrueName path;
  if (!percent_decode(values[kName], path.name) || path.name.empty()) return false;
  if (!percent_decode(values[kFolder], path.folder)) return false;
  record.path = std::move(path);
  return true;
}

bool read_code(const Values& values, SealRecord& record) {
  if (none_there(values, kK, kWindow)) return true;
  if (!all_there(values, kK, kWindow)) return false;
  Code code;
  if (!read_decimal(values[kK], kMaxBlockParts, code.k)) return false;
  if (!read_decimal(values[kR], kMaxBlockParts, code.r)) return false;
  if (!read_decimal(values[kWindow], kMaxWindow, code.window)) return false;
  record.code = code;
  return CodeLayout::of(part_count(record.size, record.udata), part_size(record.udata), code)
      .has_value();
}

bool read_signature(const Values& values, SealRecord& record) {
  if (none_there(values, kKey, kSig)) return true;
  if (!all_there(values, kKey, kSig)) return false;
  return read_lower_hex(values[kKey], record.key.emplace()) &&
         read_lower_hex(values[kSig], record.signature.emplace());
}

bool read_content(const Values& values, SealRecord& record) {
  return values[kSeal] == "1" && read_upper_hex(values[kOf], 16, record.of) &&
         read_decimal(values[kKind], std::uint16_t{UINT16_MAX}, record.kind) &&
         record.kind != kKindSeal &&
         read_decimal(values[kSize], std::uint64_t{INT64_MAX}, record.size) &&
         read_decimal(values[kUdata], kMaxUdataSize, record.udata) &&
         record.udata >= kMinUdataSize &&
         read_decimal(values[kSent], std::int64_t{INT64_MAX}, record.sent) &&
         read_upper_hex(values[kCrc], 8, record.crc) && read_lower_hex(values[kB2], record.b2) &&
         read_mtime(values[kMtime], record) && read_number(values[kMode], 0777U, 8, record.mode) &&
         octal_mode(record.mode) == values[kMode];
}

}  // namespace

std::optional<SealRecord> parse_record(std::string_view text) {
  Values values;
  SealRecord record;
  if (!split(text, values) || !all_there(values, kSeal, kMode)) return std::nullopt;
  if (!read_content(values, record) || !read_path(values, record)) return std::nullopt;
  if (!read_code(values, record) || !read_signature(values, record)) return std::nullopt;
  return record;
}

std::string unsigned_text(const SealRecord& record) {
  std::string text = "seal=1";
  const auto add = [&text](Field field, const std::string& value) {
    text.append(" ").append(kKeys[field]).append("=").append(value);
  };
  add(kOf, upper_hex(record.of, 16));
  add(kKind, decimal(record.kind));
  add(kSize, decimal(record.size));
  add(kUdata, decimal(record.udata));
  add(kSent, decimal(record.sent));
  add(kCrc, upper_hex(record.crc, 8));
  add(kB2, lower_hex(record.b2));
  add(kMtime, decimal(record.mtime_s) + "." + nine_digits(record.mtime_ns));
  add(kMode, octal_mode(record.mode));
  if (record.path) {
    add(kName, percent_encode(record.path->name));
    add(kFolder, percent_encode(record.path->folder));
  }
  if (record.code) {
    add(kK, decimal(record.code->k));
    add(kR, decimal(record.code->r));
    add(kWindow, decimal(record.code->window));
  }
  if (record.key) add(kKey, lower_hex(*record.key));
  return text;
}

std::string signed_message(std::string_view text) {
  return std::string("tarnwick-seal-1\n").append(text.substr(0, text.rfind(kSignatureField)));
}

bool signature_holds(std::string_view text, const SealRecord& record) {
  if (!record.key || !record.signature) return false;
  const std::string message = signed_message(text);
  return crypto_sign_verify_detached(record.signature->data(),
                                     reinterpret_cast<const unsigned char*>(message.data()),
                                     message.size(), record.key->data()) == 0;
}

std::string signature_field(const Signature& signature) {
  return std::string(kSignatureField).append(lower_hex(signature));
}

std::string seal_name(std::uint64_t of) { return upper_hex(of, 16) + ".seal"; }

std::size_t record_room(std::size_t folder_size) {
  const std::size_t others = kNamesAt + seal_name(0).size() + 1 + folder_size + 1;
  const std::size_t ends = 2;  // of the record, and of the names area
  return others + ends < kMaxUdataSize ? kMaxUdataSize - others - ends : 0;
}
