// frame/options.h: the letters of the settings, the same on the command line
// (-x:value) and in the configuration file (x:value), and the long options, which
// read the same in both places (--name=value).
#pragma once

#include <string>
#include <vector>

#include "frame/words.h"

/// Sets what `letter` stands for from `value`, taken as it is; numbers are read
/// by to_int() and to_double(). False, with nothing set, for a letter that
/// stands for no setting.
bool apply_setting(char letter, const std::string& value);

/// True if `letter` may begin a line of the configuration file.
bool is_config_key(char letter);

/// True if `letter` stands for a setting.
bool is_setting(char letter);

/// How the value behind `letter` is read; kText for a letter that stands for none.
ValueKind kind_of(char letter);

/// Where an option stands.
enum class Place { kCommandLine, kConfigFile };

/// Applies `text` if it is a long option that may stand at this place, and does
/// nothing if it is not. A value that is missing or none of the option's values
/// sets only `settings.refusal`. Returns what it was; only `heard`, `option` and
/// `value` are filled in.
Word apply_long_option(const std::string& text, Place place);

/// An option and the value that is in force for it, as text.
struct InForce {
  std::string option;
  std::string value;
};

/// All settings, in the order of their letters, then of their names.
std::vector<InForce> settings_in_force();
