// scan/walk.h: visits a scan folder and everything below it, depth first.
#pragma once

#include <cstdint>
#include <string>

/// Walks the folder `parent`/`name` (`name` alone when `parent` is empty):
/// sends the files that are ready, removes the sub-folders that this empties,
/// never the folder itself. Gives the number of entries left in it, or -1 if it
/// can't be opened or a stop was requested. `cur_folder` must be set.
std::int32_t scan_dir(const std::string& parent, const std::string& name);

/// Removes the empty folder `parent`/`name`: 1, or 0 after counting an access
/// error, the 11th of which ends the process with status 1.
std::int32_t remove_dir(const std::string& parent, const std::string& name);
