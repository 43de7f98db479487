// receiver/deliver/moves.h: files that take their name only when they are whole.
#pragma once

#include <string>

/// Moves the file `old` of the folder `from` to `name` in `folder`; with `replace` in the
/// place of a file that is there. False on failure, errno set: EEXIST or EISDIR where
/// something is in the way.
bool rename_to(int from, const char* old, int folder, const std::string& name, bool replace);

/// Returns `name` with a number that is free in `folder`, the first one or close to it:
/// "a (1).txt".
std::string free_name(int folder, const std::string& name);

/// Copies all of the file `from` into the empty file `to`; moves the offsets of
/// both. Holes stay holes, since a huge file of which little came must not fill a
/// disk. Returns false on failure, errno set.
bool copy_contents(int from, int to);
