// receiver/deliver/boot.h: tells whether the machine was restarted since the last run.
#pragma once

/// True if the file "boot_id" in the open `folder` names the present boot (proc(5),
/// /proc/sys/kernel/random/boot_id), so that what an earlier process wrote to a
/// file without syncing it is still there.
bool is_same_boot(int folder);

/// Writes the id of the present boot to that file. Call it only when no untrusted bytes of an
/// earlier boot are left. If it fails, the next run takes this boot for another one.
void note_boot(int folder);
