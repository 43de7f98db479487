// send/source_file.h: the file being sent, read through one description from the
// first look to the last, so that what is sent is what was found ready.
//
//   SourceFile file(entry);
//   ...                       // is it ready, by stamp()?
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
    kOpen,       ///< may be read
    kMissing,    ///< not there, or not to be opened; also a folder
    kIrregular,  ///< a pipe, device or socket, which is never opened
  };
  enum class Look {
    kSame,   ///< it is the file that was opened, as it was then
    kGone,   ///< nothing has the name any more
    kOther,  ///< another file, or changed, or it can't be told
  };

  /// Looks at the entry, through a link where the rule of softlib/links.h allows
  /// it, and opens nothing.
  explicit SourceFile(Entry entry);

  /// Opens what was looked at; what has come in its place since is kMissing.
  void open();

  /// Closes it; everything but reading goes on.
  void close() { fd_ = Fd(); }

  const Entry& entry() const { return entry_; }
  const std::string& path() const { return entry_.path; }
  State state() const { return state_; }
  int fd() const { return fd_.get(); }

  /// Bytes, by the end's position when the file was opened; negative if it has
  /// none.
  std::int64_t size() const { return size_; }

  /// Which file it is, its size and its times when it was opened, right before
  /// its end was looked for; until then, when it was looked at. Zeros if
  /// nothing was there.
  const FileStamp& stamp() const { return stamp_; }

  /// Back to the first byte.
  void rewind() const;

  /// Reads on, `size` bytes to `to`; returns the number of bytes read: fewer only
  /// if the file yields no more.
  std::uint64_t read(unsigned char* to, std::uint64_t size) const;

  /// check_open_file() for its path, its own descriptor left out.
  int check_open();

  /// check_open() anew if its last answer (else the first look) is more than a
  /// second old; true if somebody holds it by now, or if that can't be told.
  bool was_opened_since();

  /// What the entry names by now.
  Look look() const;

  /// What `name` in `folder` is, to which the entry was renamed; a rename itself
  /// is no change.
  Look look_at_renamed(int folder, const std::string& name) const;

 private:
  bool is_unchanged(int fd, bool but_change_time) const;
  Look look_at(int folder, const char* name, bool but_change_time) const;

  Entry entry_;
  State state_ = State::kMissing;
  std::optional<FileStamp> link_;  ///< of the entry itself, if it is a link
  Fd pinned_;
  Fd fd_;
  std::int64_t size_ = 0;
  std::uint64_t checked_ms_;  ///< by steady_ms()
  FileStamp stamp_;
};
