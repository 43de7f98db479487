// send/source_file.h: the file being sent, read so that no byte goes out that
// was not read and no change while it is sent goes unseen.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>

#include "softlib/owners.h"

class SourceFile {
 public:
  /// Opens `path`; never waits, whatever it names. Check is_open() and
  /// is_regular() before anything else.
  explicit SourceFile(const std::string& path);

  bool is_open() const { return static_cast<bool>(fd_); }

  /// False for a pipe, device, socket or folder, which is not even opened
  /// unless it came in the place of a file at that very moment.
  bool is_regular() const { return is_regular_; }

  /// Bytes, by the end's position when the file was opened.
  std::int64_t size() const { return size_; }

  /// Back to the first byte.
  void rewind() const;

  /// Reads exactly `len` bytes; false if the file yields fewer.
  bool read(unsigned char* to, std::size_t len) const;

  /// True if size or modification time (ns) are not what they are in `before`,
  /// or if `path` now names another file.
  bool changed_since(const SourceFile& before, const std::string& path) const;

  /// Closes the file; size() and what changed_since() compares stay.
  void close() { fd_ = Fd(); }

 private:
  Fd fd_;
  bool is_regular_ = true;
  std::int64_t size_ = 0;
  std::timespec modified_{};
};
