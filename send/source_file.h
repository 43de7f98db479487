// send/source_file.h: the file being sent. It is opened once and read through the same
// descriptor until it was sent, so that what is sent is what was found ready.
//
//   SourceFile file(entry);
//   ...                       // look at stamp(): is the file ready?
//   file.open();
//   ...                       // read, send
//   if (file.look() == SourceFile::Look::kSame) ...
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "ground/owners.h"
#include "softlib/entry.h"
#include "softlib/file_system.h"

class SourceFile {
 public:
  enum class State {
    kClosed,     ///< a regular file, not open
    kOpen,       ///< can be read
    kMissing,    ///< not there, can't be opened, or a folder
    kIrregular,  ///< a pipe, device or socket, which is never opened
  };
  enum class Look {
    kSame,   ///< it is the file that was opened, and it has not changed
    kGone,   ///< nothing has the name any more
    kOther,  ///< it is another file, it has changed, or that can't be found out
  };

  /// Looks at the entry, through a link where the rule of softlib/links.h allows
  /// it, and opens nothing.
  explicit SourceFile(Entry entry);

  /// Opens the file that the constructor looked at. state() becomes kMissing if that is no
  /// longer there, even if another file has its name.
  void open();

  /// Closes the file. Only reading is impossible afterwards.
  void close() { fd_ = Fd(); }

  const Entry& entry() const { return entry_; }
  const std::string& path() const { return entry_.path; }
  State state() const { return state_; }
  int fd() const { return fd_.get(); }

  /// Returns the size in bytes, which is where lseek(2) found the end when the file was
  /// opened; negative if it found none.
  std::int64_t size() const { return size_; }

  /// Returns which file it is, its size and its times. They are those of the moment at
  /// which it was opened, right before size() was found; before open(), those that the
  /// constructor found. All 0 if there was nothing.
  const FileStamp& stamp() const { return stamp_; }

  /// Goes back to the first byte.
  void rewind() const;

  /// Reads the next `size` bytes to `to`. Returns the number of bytes read, which is less
  /// than `size` only at the end of the file or after an error.
  std::uint64_t read(unsigned char* to, std::uint64_t size) const;

  /// Returns what check_open_file() says of its path, its own descriptor left out.
  int check_open();

  /// Calls check_open() again if its last answer (or the constructor's look) is more than
  /// a second old. True if somebody holds the file, or if that can't be found out.
  bool was_opened_since();

  /// Returns what the entry names now.
  Look look() const;

  /// Returns what `name` in `folder` is, to which the entry was renamed. The renaming
  /// does not count as a change.
  Look look_at_renamed(int folder, const std::string& name) const;

 private:
  bool is_unchanged(int fd, bool but_change_time) const;
  Look look_at(int folder, const char* name, bool but_change_time) const;

  Entry entry_;
  State state_ = State::kMissing;
  std::optional<FileStamp> link_;  ///< stamp of the entry itself, if it is a link
  Fd pinned_;
  Fd fd_;
  std::int64_t size_ = 0;
  std::uint64_t checked_ms_;  ///< when check_open() was called last, by steady_ms()
  FileStamp stamp_;
};
