// receiver/assemble/part_files.h: the files that grow in the hidden folder until they are
// whole, one for each transfer. Only the few that were used last stay open, so the number
// of transfers is not limited by descriptors.
#pragma once

#include <cstddef>
#include <list>
#include <unordered_map>
#include <utility>
#include <vector>

#include "ground/owners.h"
#include "receiver/base/transfer_key.h"

class PartFiles {
 public:
  static constexpr std::size_t kMostOpen = 64;
  static constexpr std::size_t kReserved = 4;  ///< for a part, two folders, and a copy or a note

  PartFiles() = default;
  /// Keeps the growing files in the open `folder`.
  explicit PartFiles(Fd folder);

  /// Opens the transfer's file for reading and writing; makes an empty one if there is none.
  /// It stays open until the next call. Returns the descriptor, or -1 with errno set. Closes
  /// others if the process may not open any more.
  int open(const TransferKey& key);

  /// Like open(), but makes no file: returns -1 with ENOENT if there is none.
  int open_left(const TransferKey& key);

  /// True if the transfer has a file, open or not.
  bool has(const TransferKey& key) const;

  /// Closes the file. Call it before the file gets another name.
  void close(const TransferKey& key);

  /// Deletes the file; nothing happens if there is none.
  void drop(const TransferKey& key);

  /// Returns the transfers whose files an earlier run left behind.
  std::vector<TransferKey> left() const;

  /// Takes over the file of an earlier version, which named it after the id alone. Returns
  /// false if there is none.
  bool adopt(const TransferKey& key) const;

  /// The open folder.
  int folder() const { return folder_.get(); }

  /// Frees the descriptors that are reserved for a delivery, so that it never fails for want
  /// of one. While it lives, the files but the one opened last may be closed, too.
  class Reserve {
   public:
    explicit Reserve(PartFiles& files) : files_(files) { files_.reserve_.clear(); }
    ~Reserve() { files_.fill_reserve(); }
    Reserve(const Reserve&) = delete;
    Reserve& operator=(const Reserve&) = delete;

   private:
    PartFiles& files_;
  };

 private:
  using Open = std::list<std::pair<TransferKey, Fd>>;

  Fd open_file(const TransferKey& key, int flags) const;
  int keep_open(const TransferKey& key, bool make);
  void fill_reserve();

  Fd folder_;
  Open open_;  ///< the one used last at the end
  std::unordered_map<TransferKey, Open::iterator> places_;
  std::vector<Fd> reserve_;
};
