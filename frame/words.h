// frame/words.h: tells a listener what each argument and each line of a configuration file
// did, so that it can tell the user. The sender itself has no listener.
#pragma once

#include <functional>
#include <string>

/// What a word did.
enum class Heard {
  kSet,        ///< it set a setting
  kOpened,     ///< it names a configuration file, which is read next
  kNoValue,    ///< nothing: it is an option whose value is missing
  kValue,      ///< nothing: it is an option that takes no value, but has one
  kElsewhere,  ///< nothing: it is an option, but not in this place
  kUnknown,    ///< nothing: it is not an option
};

/// How a value is read.
enum class ValueKind { kText, kWhole, kReal };

/// An argument of the command line or a line of a configuration file.
struct Word {
  Heard heard = Heard::kUnknown;
  std::string text;    ///< as it stands
  std::string option;  ///< "-m" or "--run-dir"; empty if it is not an option
  std::string value;   ///< the value behind the option
  ValueKind kind = ValueKind::kText;
  std::string file;  ///< configuration file; empty: the command line
  int number = 0;    ///< number of the argument or of the line, from 1
};

using WordListener = std::function<void(const Word&)>;
