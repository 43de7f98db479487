// softlib/system_log.h: tells the system's log (syslog(3)), whatever `verboze` is,
// of what ends a run or costs a file.
//
//   name_in_system_log(settings.prg_name);
//   err_system("can't open lock file " + path);
//
// Nothing is written to the console, no descriptor stays open, and errno keeps its
// value. If the log is missing, or has no room within 100 ms, the message is lost.
// Control characters are escaped.
#pragma once

#include <string>

/// Sets the name under which the messages appear; it is "tarnwick" until then.
void name_in_system_log(const std::string& program);

/// Logs a warning: something was left out, and the run goes on.
void warn_system(const std::string& text);

/// Logs an error: the run ends.
void err_system(const std::string& text);

/// A warning of something that may fail again and again: warns once, and again only
/// after it has worked.
class Warning {
 public:
  /// Call it after each attempt. `text` is the warning, should it have failed.
  void note(bool works, const std::string& text) {
    if (works_ && !works) warn_system(text);
    works_ = works;
  }

 private:
  bool works_ = true;
};
