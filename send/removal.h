// send/removal.h: removes a sent file and nothing that has come in its place.
#pragma once

#include <functional>

#include "send/aside.h"
#include "send/source_file.h"

/// What became of a sent file that is to go.
enum class Removal {
  kDone,
  kGone,     ///< somebody took it away before; nothing was done
  kOpened,   ///< it stays: somebody has opened it since, or that can't be told
  kChanged,  ///< it stays: it is not the file that was sent, or that can't be told
  kFailed,   ///< it stays: it can't be removed
};

/// Renames the file aside, looks whether that was the one that was sent, and only
/// then lets `finish` remove or move it; `finish` returns whether it could. What
/// stays gets its name back, see send/aside.h.
Removal take_away(SourceFile& file, const std::function<bool(Aside&)>& finish);
