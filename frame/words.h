// frame/words.h: what became of each word that settings are read from, for whoever wants to
// tell the user. The sender itself listens to none.
#pragma once

#include <functional>
#include <string>

/// What a word did.
enum class Heard {
  kSet,        ///< set its setting
  kOpened,     ///< is a configuration file, which is read from here on
  kNoValue,    ///< nothing: an option without its value
  kValue,      ///< nothing: an option that takes no value, with one
  kElsewhere,  ///< nothing: an option that is none at this place
  kUnknown,    ///< nothing: no option
};

/// How a value is read.
enum class ValueKind { kText, kWhole, kReal };

/// An argument of the command line or a line of a configuration file.
struct Word {
  Heard heard = Heard::kUnknown;
  std::string text;    ///< as it stands
  std::string option;  ///< "-m" or "--run-dir"; empty if it is none
  std::string value;   ///< what was behind it
  ValueKind kind = ValueKind::kText;
  std::string file;  ///< configuration file; empty: the command line
  int number = 0;    ///< of the argument or of the line, from 1
};

using WordListener = std::function<void(const Word&)>;
