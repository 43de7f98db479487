// receiver/moves.h: files that take their name only when they are whole.
#pragma once

#include <string>

#include "receiver/fd.h"

/// Owns a new file that must not last should anything fail: it goes with its owner
/// unless it has been renamed by then.
class Temporary {
 public:
  /// Makes the file in `folder`, which stays open as long as this lasts, in the place
  /// of one that a killed run left there. On failure fd() is -1, errno set.
  Temporary(int folder, std::string name);
  ~Temporary();
  Temporary(const Temporary&) = delete;
  Temporary& operator=(const Temporary&) = delete;

  int fd() const { return fd_.get(); }
  const char* name() const { return name_.c_str(); }

 private:
  int folder_;
  std::string name_;
  Fd fd_;
};

/// Moves the file `old` of the folder `from` to `name` in `folder`, in the place of
/// what is there. When `numbered`, nothing is replaced, and `name` becomes one that
/// was free. False on failure, errno set.
bool rename_to(int from, const char* old, int folder, std::string& name, bool numbered);

/// Copies all of the file `from` into the empty file `to`; moves the offsets of
/// both. Holes stay holes: a huge file of which little came must not fill a disk.
/// False on failure, errno set.
bool copy_contents(int from, int to);

/// Writes `text` at the offset of `fd`. False on failure, errno set.
bool write_all(int fd, const std::string& text);
