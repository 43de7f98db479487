// frame/config_file.h: settings from a file of "x:value" and "--name=value" lines,
// and the first such file written.
#pragma once

#include <istream>
#include <string>

#include "frame/words.h"

/// File name of the configuration file in each of its places.
constexpr char kConfigFileName[] = "tarnwick_cfg";

/// Reads the first of these files that can be opened: `config_name`; and unless
/// `only_named`, "tarnwick_cfg" beside the program and in "/etc/". False if
/// none can be. Lines that are neither a key letter's nor a long option are
/// skipped. `heard` (may be empty) is told the file, then each line.
bool LoadConfig(bool only_named, const WordListener& heard = {});

/// Applies the lines of a configuration file, to the end of `in` or up to its failure;
/// `heard` (may be empty) is told each of them, as one of the file `path`.
void apply_config(std::istream& in, const std::string& path, const WordListener& heard = {});

/// Writes `config_name` anew from the settings, with a line size, a speed and a
/// scan list of its own choice. False if it can't be opened for writing.
bool SaveConfig();
