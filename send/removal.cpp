#include "send/removal.h"

#include <cerrno>

Removal take_away(SourceFile& file, const std::function<bool(Aside&)>& finish) {
  if (file.was_opened_since()) return Removal::kOpened;
  if (const SourceFile::Look found = file.look(); found != SourceFile::Look::kSame)
    return found == SourceFile::Look::kGone ? Removal::kGone : Removal::kChanged;
  Aside aside(file.entry().folder, file.entry().name);
  if (aside.error() != 0) return aside.error() == ENOENT ? Removal::kGone : Removal::kFailed;
  // another file may have got the name between look() and the renaming
  if (file.look_at_renamed(aside.folder(), aside.name()) != SourceFile::Look::kSame)
    return Removal::kChanged;
  if (finish(aside)) return Removal::kDone;
  return aside.error() == ENOENT ? Removal::kGone : Removal::kFailed;
}
