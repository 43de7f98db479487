// softlib/system_log.h: what ends a run or costs a file, said to the system's
// log (syslog(3)) at every `verboze`.
//
//   name_in_system_log(settings.prg_name);
//   err_system("can't open lock file " + path);
//
// Nothing is written to the console, no descriptor stays open, and errno is
// left alone. A log that is missing, or that has no room within 100 ms, costs
// the message and nothing else. Control characters are escaped.
#pragma once

#include <string>

/// The name under which the messages appear; "tarnwick" until it is set.
void name_in_system_log(const std::string& program);

/// A warning: something was left out, and the run goes on.
void warn_system(const std::string& text);

/// An error: the run ends.
void err_system(const std::string& text);

/// For what fails again and again: warns once, until it has worked again.
class Warning {
 public:
  /// `text` says what fails, if it does.
  void note(bool works, const std::string& text) {
    if (works_ && !works) warn_system(text);
    works_ = works;
  }

 private:
  bool works_ = true;
};
