// softlib/entry.h: a name in an open folder.
#pragma once

#include <string>

/// An entry is always reached through its folder's descriptor, since the folders above
/// may have been exchanged meanwhile. The path is for messages.
struct Entry {
  int folder;        ///< descriptor of the open folder, which must outlive the entry
  std::string name;  ///< without "/"
  std::string path;  ///< as the walk spells it
};
