// receiver/boot.h: has the machine been started anew since the last run?
#pragma once

#include <string>

/// True if the file `path` names the present boot (proc(5),
/// /proc/sys/kernel/random/boot_id), so that what an earlier process wrote to a
/// file without syncing it is still there.
bool is_same_boot(const std::string& path);

/// Writes the present boot to the file `path`: only when nothing of an earlier boot
/// is left that may not be trusted.
void note_boot(const std::string& path);
