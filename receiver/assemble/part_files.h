// receiver/assemble/part_files.h: the files that grow in the hidden folder until they are
// whole, one for each transfer. A transfer at rest holds no descriptor: a few files that
// were used last stay open, so the number of transfers is no matter of descriptors.
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
  static constexpr std::size_t kReserved = 4;  ///< a part, two folders, a copy or a note

  PartFiles() = default;
  /// The growing files in the open `folder`.
  explicit PartFiles(Fd folder);

  /// The file of the transfer, made empty where there is none, for reading and writing.
  /// It stays open until the next call. -1 on failure, errno set. Where the process may
  /// open no more, others are closed.
  int open(const TransferKey& key);

  /// The same, but makes none: ENOENT.
  int open_left(const TransferKey& key);

  /// True if there is one, open or not.
  bool has(const TransferKey& key) const;

  /// Closes the file, as before another name is given to it.
  void close(const TransferKey& key);

  /// Deletes the file; nothing happens if there is none.
  void drop(const TransferKey& key);

  /// The transfers whose files an earlier run left behind.
  std::vector<TransferKey> left() const;

  /// Takes over a file that a version left which named it after the id alone. False if
  /// there is none.
  bool adopt(const TransferKey& key) const;

  /// The open folder.
  int folder() const { return folder_.get(); }

  /// Descriptors that are kept for a delivery, so that a whole file never waits for one
  /// that others hold. They are free as long as this lasts, and so are all but the file
  /// opened last.
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
