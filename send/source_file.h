// send/source_file.h: the file being sent, opened without waiting and read so
// that no byte goes out that was not read.
#pragma once

#include <cstdint>
#include <string>

#include "softlib/file_system.h"
#include "softlib/owners.h"

class SourceFile {
 public:
  enum class State {
    kOpen,       ///< may be read
    kMissing,    ///< not there, or not to be opened; also a folder
    kIrregular,  ///< a pipe, device or socket
  };

  /// Opens `path`; never waits, whatever it names. What is no regular file is
  /// not even opened, unless it came in the place of one at that very moment.
  explicit SourceFile(const std::string& path);

  State state() const { return state_; }

  /// Bytes, by the end's position when the file was opened; negative if it has
  /// none.
  std::int64_t size() const { return size_; }

  /// Which file it is, with size and modification time when it was opened, right
  /// before its end was looked for.
  const FileStamp& stamp() const { return stamp_; }

  /// Back to the first byte.
  void rewind() const;

  /// Reads on, `size` bytes to `to`; gives the number of bytes read: fewer only
  /// if the file yields no more.
  std::uint64_t read(unsigned char* to, std::uint64_t size) const;

  /// True if the file that is open, or the one that `path` names by now, is not
  /// as it was in `before`. A file that is gone by name has not changed.
  bool differs_from(const FileStamp& before, const std::string& path) const;

  /// Closes the file; size() and stamp() stay.
  void close() { fd_ = Fd(); }

 private:
  Fd fd_;
  State state_ = State::kMissing;
  std::int64_t size_ = 0;
  FileStamp stamp_;
};
