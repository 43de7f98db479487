// softlib/path.h: takes paths apart and joins them; never asks the system.
//
// A path is a byte string. It is split at its last "/" or "\" and joined with
// "/" alone.
#pragma once

#include <string>

/// Returns the part behind the last separator; the whole path if there is none.
std::string get_file_name(const std::string& path);

/// Returns the part behind the last "." of the file name, "" if there is none;
/// dots in folder names do not count.
std::string get_file_ext(const std::string& path);

/// Returns the file name up to its last "."; the whole name if it has none.
std::string get_file_name_noext(const std::string& path);

/// Splits at the last separator, which goes to neither part. Without one
/// `dir` becomes empty and `name` the whole path.
void prg_get_name_dir(const std::string& path, std::string& name, std::string& dir);

/// Returns `parent`, "/" and `name`; `name` alone when `parent` is empty. No other
/// slash is removed or added.
std::string join_path(const std::string& parent, const std::string& name);
