// softlib/replace_file.h: a small file that others read while it changes.
#pragma once

#include <string>

/// Writes `text` to "PATH.tmp", made anew with mode 0644, and renames that to `path`, so
/// that a reader has the old file or the new one. Folders are opened by the rule of
/// softlib/links.h. Returns "", or why it failed: also where `path` is something else than a
/// regular file, which stays.
std::string replace_file(const std::string& path, const std::string& text);
