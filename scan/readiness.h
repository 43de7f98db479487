// scan/readiness.h: may a file go now?
//
//   if (check_name(path) != Readiness::kReady) ...   // looks at nothing
//   SourceFile file(entry);
//   if (check_ready(file) == Readiness::kReady) ...   // `file` is open
#pragma once

#include <string>

#include "send/source_file.h"

enum class Readiness {
  kReady,
  kMask,       ///< its name begins with `blk_mask`
  kExtension,  ///< it has the extension `blk_ext`
  kIgnored,    ///< `zero_ign`, and it is empty or no regular file
  kOpen,       ///< some process holds it open, or that can't be told
  kYoung,      ///< modified no more than `time_send_wait` seconds ago
};

/// kMask, kExtension, or kReady for a name that says nothing against it.
Readiness check_name(const std::string& path);

/// Opens the file unless it is ignored, and tests all but its name. Says at `verboze` 1
/// or 2 what stands against it.
Readiness check_ready(SourceFile& file);
