// check/origins.h: tells where each setting comes from.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "frame/options.h"
#include "frame/words.h"

/// A setting, its present value and where that was set.
struct Origin {
  std::string option;
  std::string meaning;
  std::string value;
  std::string place;  ///< "default", "argument 2" or "FILE, line 3"
};

/// What the settings were read from, in the order of reading.
struct ReadWords {
  std::vector<Word> config;        ///< the configuration file that is read first
  std::vector<Word> command_line;  ///< the arguments, and the files that -o names
};

/// Returns "argument 2" or "FILE, line 3".
std::string place_of(const Word& word);

/// Returns the word that set the present value of each option.
std::map<std::string, Word> deciding_words(const ReadWords& words);

/// Returns all settings, as set by `words`.
std::vector<Origin> origins_of_settings(const ReadWords& words);
