// frame/config_file.h: settings from a file of "x:value" lines, and the first
// such file written.
#pragma once

/// File name of the configuration file in each of its places.
constexpr char kConfigFileName[] = "tarnwick_cfg";

/// Reads the first of these files that can be opened: `config_name`; and unless
/// `only_named`, "tarnwick_cfg" beside the program and in "/etc/". False if
/// none can be. Lines that begin with no key letter are skipped.
bool LoadConfig(bool only_named);

/// Writes `config_name` anew from the settings, with a line size, a speed and a
/// scan list of its own choice. False if it can't be opened for writing.
bool SaveConfig();
