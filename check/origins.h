// check/origins.h: where each setting comes from.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "frame/options.h"
#include "frame/words.h"

/// A setting in force.
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

/// "argument 2" or "FILE, line 3".
std::string place_of(const Word& word);

/// The words that set the settings in force, by their options.
std::map<std::string, Word> deciding_words(const ReadWords& words);

/// The settings in force, which `words` led to.
std::vector<Origin> origins_of_settings(const ReadWords& words);
