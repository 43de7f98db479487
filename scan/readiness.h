// scan/readiness.h: tells whether a file may be sent now.
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
  kIgnored,    ///< `zero_ign` is set, and it is empty or not a regular file
  kOpen,       ///< some process holds it open, or that can't be found out
  kYoung,      ///< modified no more than `time_send_wait` seconds ago
};

/// Tests the name alone. Returns kMask, kExtension or kReady.
Readiness check_name(const std::string& path);

/// Opens the file unless it is ignored, and tests all but its name. At `verboze` 1 or 2,
/// says why it is not ready.
Readiness check_ready(SourceFile& file);
