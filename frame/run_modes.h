// frame/run_modes.h: one function a mode. Each gives the exit status, so that
// main returns it and the lock is let go of on the way.
#pragma once

#include "proc/proc.h"

/// One scan, or a cycle of scans, until nothing is left to do, the escape key
/// or a stop request. 0, or kRefused if another copy runs or there is no
/// socket.
int run_scan_loop(Proc& lock);
