// frame/options.h: the letters of the settings, the same on the command line
// (-x:value) and in the configuration file (x:value).
#pragma once

#include <string>

/// Sets what `letter` stands for from `value`, taken as it is; numbers are read
/// by to_int() and to_double(). False, with nothing set, for a letter that
/// stands for no setting.
bool apply_setting(char letter, const std::string& value);

/// True if `letter` may begin a line of the configuration file.
bool is_config_key(char letter);
