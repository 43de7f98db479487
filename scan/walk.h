// scan/walk.h: sends the files in a scan folder and below it.
#pragma once

#include <cstdint>
#include <string>

/// Pauses after each file that was sent, and for each folder that was emptied.
constexpr std::uint32_t kAfterSentFileUs = 20'000;
constexpr std::uint32_t kBeforeEmptinessTestUs = 20'000;

/// Walks the folder `parent`/`name` (`name` alone when `parent` is empty): sends the
/// files that are ready and removes the sub-folders that become empty, but never the
/// folder itself. Returns the number of entries left in it, or -1 if it can't be opened
/// or a stop was requested. `cur_folder` must be set.
///
/// Links are followed by the rule of softlib/links.h. A link that may not be followed, or
/// that leads back to a folder being walked, counts as an entry left; the first one in a
/// run is a warning in the system's log.
std::int32_t scan_dir(const std::string& parent, const std::string& name);
