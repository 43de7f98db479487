// receiver/events.h: tells the operator what happens, as text or JSON lines.
//
// Events go to standard output; warnings to standard error, or with JSON among the
// events. What came off the wire is shown by printable(). On a terminal a progress
// line stands below the events and is drawn anew.
#pragma once

#include <cstdint>
#include <string>

#include "receiver/record.h"

class Events {
 public:
  explicit Events(bool json);

  void listening(const std::string& at, const std::string& into);
  void delivered(const TransferRecord& record);
  void incomplete(const TransferRecord& record);
  void refused(const TransferRecord& record);
  void warning(const std::string& text);
  void ended(std::uint64_t files);

  /// Where the transfer stands now, at `rate` bytes/s with `holes` parts missing
  /// among those that should have come; nothing unless standard output is a
  /// terminal.
  void progress(const TransferRecord& record, double rate, std::uint64_t holes);

  bool shows_progress() const { return terminal_; }

 private:
  void line(const std::string& text);
  void warning_line(const std::string& text);
  void clear_progress();

  bool json_;
  bool terminal_;
  bool progress_shown_ = false;
};
