// frame/config_file.h: reads settings from a file of "x:value" and "--name=value"
// lines, and writes a first such file.
#pragma once

#include <istream>
#include <string>

#include "frame/words.h"

/// Name of the configuration file in each folder where it is looked for.
constexpr char kConfigFileName[] = "tarnwick_cfg";

/// Reads the first of these files that can be opened: `config_name`; and unless
/// `only_named`, "tarnwick_cfg" beside the program and in "/etc/". Returns false
/// if none can be opened. Lines that begin with neither a key letter nor a long
/// option are skipped. Calls `heard` (may be empty) with the file, then with each
/// line.
bool LoadConfig(bool only_named, const WordListener& heard = {});

/// Applies the lines of a configuration file, up to the end or the failure of `in`. Calls
/// `heard` (may be empty) with each of them, as a line of the file `path`.
void apply_config(std::istream& in, const std::string& path, const WordListener& heard = {});

/// Writes `config_name` anew from the settings, but with its own values for line
/// size, speed and scan list. Returns false if that fails.
bool SaveConfig();
