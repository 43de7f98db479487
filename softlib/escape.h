// softlib/escape.h: names that a stranger chose, made harmless to look at.
#pragma once

#include <string>

/// Returns `text` with "\xHH" in place of each ASCII control character; every
/// other byte stays as it is.
std::string escape_controls(const std::string& text);

/// Returns `text` with "\xHH" in place of each byte that does not belong to a
/// printable character in the locale in force.
std::string escape_unprintable(const std::string& text);
