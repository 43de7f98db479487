// scan/walk.h: sends what lies in a scan folder and below it (scan/tree.h).
#pragma once

#include <cstdint>
#include <string>

/// Pauses after each file that was sent, and for each folder that was emptied.
constexpr std::uint32_t kAfterSentFileUs = 20'000;
constexpr std::uint32_t kBeforeEmptinessTestUs = 20'000;

/// Walks the folder `parent`/`name` (`name` alone when `parent` is empty): sends the
/// files that are ready, removes the sub-folders that this empties, never the folder
/// itself. Returns the number of entries left in it, or -1 if it can't be opened or a
/// stop was requested. `cur_folder` must be set.
///
/// Links are followed by the rule of softlib/links.h. One that may not be followed, or
/// that leads back to a folder being walked, counts as left, and the first of them is
/// told to the system's log.
std::int32_t scan_dir(const std::string& parent, const std::string& name);
