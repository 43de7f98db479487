// receiver/tell/events.h: tells the operator what happens, as text or JSON lines.
//
// Events go to one outlet; warnings to another one, or with JSON among the events. What came off
// the wire is shown by printable(). On a terminal a progress line stands below the events and is
// drawn anew.
//
// Each line begins with its local time; an object has the time in "time", in UTC. Where
// systemd's journal reads, which notes the time itself, a line begins with its level.
#pragma once

#include <cstdint>
#include <string>

#include "receiver/base/record.h"
#include "receiver/tell/metrics.h"
#include "receiver/tell/outlet.h"

class Events {
 public:
  /// Both are kept by the caller and must outlive it; they are usually standard output
  /// and standard error.
  Events(bool json, Outlet& events, Outlet& warnings);

  /// Goes on with text that an outlet did not take at once, and tells what it dropped.
  /// Call it now and then.
  void flush();

  void listening(const std::string& at, const std::string& into);
  void delivered(const TransferRecord& record);
  void incomplete(const TransferRecord& record);
  void refused(const TransferRecord& record);
  void warning(const std::string& text);
  void ended(std::uint64_t files);
  void state(const Metrics& metrics);

  /// Where the transfer stands now, at `rate` bytes/s with `holes` parts missing
  /// among those that should have come; nothing unless the events go to a
  /// terminal.
  void progress(const TransferRecord& record, double rate, std::uint64_t holes);

  bool shows_progress() const { return terminal_; }

 private:
  void line(const char* event, const std::string& text);
  void warning_line(const std::string& text);
  void put(Outlet& outlet, bool to_journal, const char* event, const std::string& text);
  void clear_progress();

  bool json_;
  Outlet& events_;
  Outlet& warnings_;
  bool terminal_;
  bool events_to_journal_;
  bool warnings_to_journal_;
  std::uint64_t drops_told_ = 0;
  bool progress_shown_ = false;
};
