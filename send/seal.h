// send/seal.h: what goes out right behind a file to prove and to repair it
// (docs/wire-format.md).
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

/// A file whose passes went out. Refers to what must outlive it.
struct SealedFile {
  const SourceFile& file;
  const std::string& pth;  ///< folder path at the receiver, before any conversion
  const file_info& info;   ///< of the transfer
  const sockaddr_in& to;   ///< where it went
};

/// The seal of one file, from before its first pass on.
class Seal {
 public:
  Seal() = default;
  Seal(const Seal&) = delete;
  Seal& operator=(const Seal&) = delete;
  virtual ~Seal() = default;

  /// The file's content; what the first pass reads of it is what the seal proves.
  virtual Content& content() = 0;

  /// Sends the seal in one pass. Returns what Transfer::send_pass() returns, which
  /// means the same for the file.
  virtual int send(const SealedFile& sealed) = 0;
};

/// Makes ready for what the settings say of seals, reads the key. Returns why the
/// start must be refused, "" if it need not be.
std::string prepare_seals();

/// Repair parts in the seal of a file of `size` bytes, once prepare_seals() has
/// returned "". They go out like the parts of a file, in one pass.
std::uint64_t repair_parts(std::uint64_t size);

/// Begins the seal of a file. Returns null if none is asked for. Keeps a reference
/// to `content`, the file's, which must outlive it.
std::unique_ptr<Seal> begin_seal(Content& content);
