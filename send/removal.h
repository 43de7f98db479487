// send/removal.h: removes a sent file, but never another file that has taken its place.
#pragma once

#include <functional>

#include "send/aside.h"
#include "send/source_file.h"

/// What happened to a sent file that was to be removed.
enum class Removal {
  kDone,
  kGone,     ///< somebody took it away before; nothing was done
  kOpened,   ///< it stays: somebody has opened it since, or that can't be found out
  kChanged,  ///< it stays: it is not the file that was sent, or that can't be found out
  kFailed,   ///< it stays: it can't be removed
};

/// Renames the file aside and checks that it is the one that was sent; only then calls
/// `finish`, which removes or moves it and returns whether it could. A file that stays
/// gets its name back, see send/aside.h.
Removal take_away(SourceFile& file, const std::function<bool(Aside&)>& finish);
