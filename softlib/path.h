// softlib/path.h: takes paths apart and joins them; never asks the system.
//
// A path is a byte string. It is split at its last "/" or "\" and joined with
// "/" alone.
#pragma once

#include <string>

/// The part behind the last separator; the whole path if there is none.
std::string get_file_name(const std::string& path);

/// What follows the last "." of the file name, "" if the name has none; dots
/// in folder names do not count.
std::string get_file_ext(const std::string& path);

/// The file name cut before its last "."; the whole name if it has none.
std::string get_file_name_noext(const std::string& path);

/// Splits at the last separator, which goes to neither part. Without one
/// `dir` becomes empty and `name` the whole path.
void prg_get_name_dir(const std::string& path, std::string& name, std::string& dir);

/// `parent`, "/" and `name`; `name` alone when `parent` is empty. No slash is
/// removed or added otherwise.
std::string join_path(const std::string& parent, const std::string& name);
