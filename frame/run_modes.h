// frame/run_modes.h: one function for each mode. It returns the exit status to
// main(), so that the lock is released on the way.
#pragma once

#include "proc/proc.h"

/// The exit status of a mode that refuses to start or fails: -1, which the
/// system cuts to 255.
constexpr int kRefused = -1;

/// Makes one scan, or a cycle of scans, until nothing is left to do, the escape key
/// is pressed or a stop is requested. Returns 0, or kRefused if another copy runs or
/// there is no socket.
int run_scan_loop(Proc& lock);

/// Scans in the background until a stop is requested. The foreground process ends
/// inside the call, with status 0, once the daemon is detached. Returns 0, or
/// kRefused if another copy runs or there is no socket.
int run_daemon(Proc& lock);

/// Stops the copy that is running, by force after 1 s. Returns 0, also if no copy
/// is running, or kRefused if it can't be stopped.
int run_stop(Proc& lock);

/// Sends the trash journal to the receiver of the first scan folder, and freezes a
/// running copy meanwhile. Returns 0 if the journal was sent (or, with another copy
/// running, if that goes on again); else kRefused.
int run_trash_journal(Proc& lock);
