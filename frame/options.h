// frame/options.h: the letters of the settings, the same on the command line
// (-x:value) and in the configuration file (x:value), and the long options, which
// read the same in both places (--name=value).
#pragma once

#include <string>
#include <vector>

#include "frame/words.h"

/// Sets the setting of `letter` to `value`, which is taken as it is; numbers are
/// read by to_int() and to_double(). Returns false, with nothing set, if `letter`
/// does not stand for a setting.
bool apply_setting(char letter, const std::string& value);

/// True if `letter` may begin a line of the configuration file.
bool is_config_key(char letter);

/// True if `letter` stands for a setting.
bool is_setting(char letter);

/// Returns how the value behind `letter` is read; kText if `letter` does not stand for a
/// setting.
ValueKind kind_of(char letter);

/// Where an option stands.
enum class Place { kCommandLine, kConfigFile };

/// Applies `text` if it is a long option that is allowed in this place, else does
/// nothing. A value that is missing or bad sets only `settings.refusal`. Returns
/// what `text` did; only `heard`, `option` and `value` are filled in.
Word apply_long_option(const std::string& text, Place place);

/// An option and its present value, as text.
struct InForce {
  std::string option;
  std::string value;
};

/// Returns all settings: first those with letters, in their order, then the others by name.
std::vector<InForce> settings_in_force();
