// receiver/seals.h: what seals say of files on their way in, and whether it is believed.
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
  kNone,     ///< parts are missing, or its seal is
  kHolds,    ///< every byte is the sender's
  kDiffers,  ///< other bytes than the sender's
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

  /// A header packet of a seal, which is the transfer `seal`. Returns the transfer that it
  /// seals, or nothing for a record that is not believed; `why` is then a text for the
  /// user, "" where it was told before.
  std::optional<TransferKey> take(const HeaderPacket& header, const TransferKey& seal,
                                  const Now& now, std::string& why);

  /// True if a record of the file is known.
  bool knows(const TransferKey& file) const;

  /// The transfer whose content repairs `file`; nothing if none does. And back.
  std::optional<TransferKey> seal_of(const TransferKey& file) const;
  std::optional<TransferKey> file_of(const TransferKey& seal) const;

  /// The header packet that the file has, or would have had: for one of which none came.
  HeaderPacket header_of(const TransferKey& file) const;

  /// True if the record agrees with what the file's own header packet said.
  bool agrees(const TransferRecord& file) const;

  /// Puts into `file` what the repair parts in `seal` (null: none came) can restore, and if it
  /// is whole then holds it against the digest.
  Proof examine(Arrival& file, const Arrival* seal, PartFiles& parts) const;

  /// What the record calls it, with its times; nothing where it leaves the names out.
  std::optional<SealedAs> sealed_as(const TransferKey& file) const;

  /// "digest", or "signed " and the key in hexadecimal.
  std::string proof_text(const TransferKey& file) const;

  /// Takes up a record that an earlier run believed.
  void resume(const TransferKey& file, const std::string& text);
  std::string text_of(const TransferKey& file) const;

  /// The file is settled.
  void forget(const TransferKey& file);

 private:
  struct Known;
  std::unique_ptr<Known> known_;
  SealSettings settings_;
  std::string error_;
};
