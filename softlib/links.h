// softlib/links.h: opens files where others may have planted links.
//
// A symbolic link is followed only if its owner is root, our own user (the effective one) or the
// owner of what it leads to: the rule of Linux for sticky folders (proc(5), protected_symlinks),
// here for every link on the way and in every folder.
//
// The rule holds even if somebody exchanges entries meanwhile. A link is held open while its owner
// and its text are read through that descriptor. The text is resolved here, name by name, and the
// owner of what it leads to is read through a descriptor, too.
#pragma once

#include <sys/types.h>

#include <string>

#include "ground/owners.h"

/// The result of opening a path.
struct Opened {
  Fd fd;                  ///< nothing if it failed
  int error = 0;          ///< errno of the failure; ELOOP for a refused link
  bool refused = false;   ///< there is a link on the way that may not be followed
  bool followed = false;  ///< the file was reached through a link

  explicit operator bool() const { return static_cast<bool>(fd); }
};

/// Opens the entry `name` of the open folder `folder`, with a single openat() unless it is a link.
/// `flags` and `mode` are those of open(2), but O_TRUNC is not allowed, since it would act before
/// the rule is checked. With O_CREAT a link that leads to nothing is followed only if it is root's
/// or our own. With O_PATH the descriptor is that of what a link leads to. O_CLOEXEC is always set.
Opened open_below(int folder, const char* name, int flags, mode_t mode = 0);

/// Opens a whole path in the same way, from the working folder unless it begins with "/".
Opened open_path(const std::string& path, int flags, mode_t mode = 0);

/// Opens the target of the link that the descriptor `link` (O_PATH) holds, as if the link lay in
/// `folder`.
Opened open_target(int folder, int link, int flags);

/// Opens again the file that the descriptor `pinned` holds, even if it is an O_PATH one. Needs
/// /proc.
Opened open_again(int pinned, int flags);
