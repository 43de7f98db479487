// softlib/replace_file.h: a small file that others read while it changes.
#pragma once

#include <string>

/// Writes `text` to a new file "PATH.tmp" with mode 0644 and renames that to `path`, so that
/// a reader sees either the old file or the new one. Links are followed by the rule of
/// softlib/links.h. Returns "", or why it failed. It also fails, and changes nothing, if
/// `path` exists and is not a regular file.
std::string replace_file(const std::string& path, const std::string& text);
