// send/seal.h: the seal that follows a file and lets the receiver verify and repair
// it (docs/wire-format.md).
//
//   if (const std::string why = prepare_seals(); !why.empty()) ...   // at start-up
//   const auto seal = begin_seal(content);
//   ...                            // send seal->content() pass after pass
//   if (seal->send(sealed) != kSent) ...
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <memory>
#include <string>

#include "send/content.h"
#include "send/header_packet.h"

/// A file whose passes went out. All that it refers to must outlive it.
struct SealedFile {
  const SourceFile& file;
  const std::string& pth;  ///< folder path at the receiver, before any conversion
  const file_info& info;   ///< the file's transfer
  const sockaddr_in& to;   ///< the receiver
};

/// The seal of one file. It must be made before the file's first pass.
class Seal {
 public:
  Seal() = default;
  Seal(const Seal&) = delete;
  Seal& operator=(const Seal&) = delete;
  virtual ~Seal() = default;

  /// Returns the file's content. The seal holds the digest of what the first pass reads.
  virtual Content& content() = 0;

  /// Sends the seal in one pass. Returns what Transfer::send_pass() returns, which is
  /// then also the result for the file.
  virtual int send(const SealedFile& sealed) = 0;
};

/// Checks the settings for seals and reads the key. Returns why the start must be
/// refused, or "".
std::string prepare_seals();

/// Returns how many repair parts the seal of a file of `size` bytes has. They go out
/// like the parts of a file, in one pass. prepare_seals() must have returned "".
std::uint64_t repair_parts(std::uint64_t size);

/// Begins the seal of a file. Returns null if the settings ask for no seals. Keeps a
/// reference to the file's `content`, which must outlive it.
std::unique_ptr<Seal> begin_seal(Content& content);
