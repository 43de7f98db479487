// frame/run_modes.h: one function a mode. Each returns the exit status, so that
// main returns it and the lock is let go of on the way.
#pragma once

#include "proc/proc.h"

/// The exit status of a mode that refuses to start or fails: -1, which the
/// system cuts to 255.
constexpr int kRefused = -1;

/// One scan, or a cycle of scans, until nothing is left to do, the escape key
/// or a stop request. 0, or kRefused if another copy runs or there is no
/// socket.
int run_scan_loop(Proc& lock);

/// The same in the background: the foreground process ends inside with status
/// 0 once it has detached. Runs until a stop request. 0, or kRefused if another
/// copy runs or there is no socket.
int run_daemon(Proc& lock);

/// Stops the copy that is running, by force after 1 s. 0, also when there is
/// none; kRefused if it can't be stopped.
int run_stop(Proc& lock);

/// Sends the trash journal to the receiver of the first scan folder, holding a
/// running copy meanwhile. 0 if it was sent (or, with another copy running, if
/// that goes on again); else kRefused.
int run_trash_journal(Proc& lock);
