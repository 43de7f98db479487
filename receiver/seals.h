// receiver/seals.h: what seals say about files on their way in, and whether they are believed.
//
// A seal comes as a transfer of its own, behind the passes of its file: the record in its
// header packet, repair parts as its content. Where the seal's libraries are missing no
// seal is known, and none can be asked for.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "receiver/assemble/arrival.h"
#include "receiver/assemble/part_files.h"
#include "receiver/base/now.h"
#include "receiver/base/transfer_key.h"
#include "receiver/deliver/store.h"
#include "receiver/take/datagram.h"

struct SealSettings {
  bool require = false;            ///< deliver only what a seal has proved
  std::vector<std::string> trust;  ///< files of public keys; any of them implies `require`
  double max_age = 0;              ///< s since it was sent, beyond which it is refused; 0: any
};

enum class Proof {
  kNone,     ///< parts or the seal are missing
  kHolds,    ///< every byte is the sender's
  kDiffers,  ///< some bytes are not the sender's
};

class Seals {
 public:
  /// On failure error() tells: a key file is malformed, or the libraries are missing.
  explicit Seals(SealSettings settings);
  ~Seals();
  Seals(const Seals&) = delete;
  Seals& operator=(const Seals&) = delete;

  const std::string& error() const { return error_; }

  /// True if nothing is delivered without a seal.
  bool are_required() const;

  /// Takes a header packet of the transfer `seal`, which is a seal. Returns the transfer that
  /// it seals, or nothing if its record is not believed; `why` is then a text for the user,
  /// or "" if that was told before.
  std::optional<TransferKey> take(const HeaderPacket& header, const TransferKey& seal,
                                  const Now& now, std::string& why);

  /// True if a record of the file is known.
  bool knows(const TransferKey& file) const;

  /// Return the transfer that is the seal of `file`, and the file of a seal; nothing if none
  /// is known.
  std::optional<TransferKey> seal_of(const TransferKey& file) const;
  std::optional<TransferKey> file_of(const TransferKey& seal) const;

  /// Returns the header packet of the file as its seal tells it, for a file of which no header
  /// packet came.
  HeaderPacket header_of(const TransferKey& file) const;

  /// True if the record agrees with what the file's own header packet said.
  bool agrees(const TransferRecord& file) const;

  /// Restores parts of `file` with the repair parts in `seal` (null: none came). If the file is
  /// then whole, compares it with the digest.
  Proof examine(Arrival& file, const Arrival* seal, PartFiles& parts) const;

  /// Returns the file's names and attributes by the record; nothing if that leaves the names
  /// out.
  std::optional<SealedAs> sealed_as(const TransferKey& file) const;

  /// "digest", or "signed " and the key in hexadecimal.
  std::string proof_text(const TransferKey& file) const;

  /// Takes up a record that an earlier run believed.
  void resume(const TransferKey& file, const std::string& text);
  std::string text_of(const TransferKey& file) const;

  /// Forgets the record of a file that is settled.
  void forget(const TransferKey& file);

 private:
  struct Known;
  std::unique_ptr<Known> known_;
  SealSettings settings_;
  std::string error_;
};
