// softlib/links.h: opens files where others may have planted links.
//
// A symbolic link is followed only if its owner is root, our own user (the effective one) or the
// owner of what it leads to: the rule of Linux for sticky folders (proc(5), protected_symlinks),
// here for every link on the way and in every folder.
//
// The rule holds against somebody who exchanges entries while we look: a link is held open, and its
// owner and its text are asked of what is held; the text is resolved here, name by name, and what
// is reached is asked for its owner through its own descriptor.
#pragma once

#include <sys/types.h>

#include <string>

#include "ground/owners.h"

/// What came of an opening.
struct Opened {
  Fd fd;                  ///< nothing if it failed
  int error = 0;          ///< errno of the failure; ELOOP for a refused link
  bool refused = false;   ///< a link was met that may not be followed
  bool followed = false;  ///< it was reached through a link

  explicit operator bool() const { return static_cast<bool>(fd); }
};

/// Opens the entry `name` of the open folder `folder`; one openat() where it is no link. `flags`
/// and `mode` as for open(2), without O_TRUNC, which would act before the rule does. With O_CREAT a
/// link that leads to nothing is followed only if it is root's or our own. With O_PATH the
/// descriptor is that of what a link leads to. O_CLOEXEC is always set.
Opened open_below(int folder, const char* name, int flags, mode_t mode = 0);

/// The same for a whole path, from the working folder unless it begins with "/".
Opened open_path(const std::string& path, int flags, mode_t mode = 0);

/// Opens what the link that `link` holds (O_PATH) leads to, as if it lay in `folder`.
Opened open_target(int folder, int link, int flags);

/// Opens once more what `pinned` holds, a descriptor of any kind, O_PATH included. Needs /proc.
Opened open_again(int pinned, int flags);
