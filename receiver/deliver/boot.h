// receiver/deliver/boot.h: has the machine been started anew since the last run?
#pragma once

/// True if the file "boot_id" in the open `folder` names the present boot (proc(5),
/// /proc/sys/kernel/random/boot_id), so that what an earlier process wrote to a
/// file without syncing it is still there.
bool is_same_boot(int folder);

/// Writes the present boot to that file: only when nothing of an earlier boot is left
/// that may not be trusted. Should it fail, the next run takes the boot for another.
void note_boot(int folder);
