// receiver/check/check.h: tells what will go wrong with these options, before anything comes.
// Nothing is created, changed or locked.
#pragma once

#include <vector>

#include "ground/findings.h"
#include "receiver/options.h"

/// Findings about the ports, their buffers and fragments; with a time to wait, about what
/// comes in meanwhile, which is thrown away.
void check_line(const Options& options, Findings& findings);

/// Findings about folders, files, rights, room and the clock.
void check_place(const Options& options, Findings& findings);

/// `check`: prints the findings. Returns the exit status: 0 without warnings, 1 with warnings,
/// 2 if the receiver would not run.
int run_check(const Options& options);

/// Returns the milliseconds for which a buffer of `bytes` holds what comes at `rate` (Mbit/s of
/// 1,048,576 bits).
double milliseconds_held(double bytes, double rate);

/// Returns the bytes of fragments that wait for lost ones, at `rate` (Mbit/s of 1,048,576
/// bits), if datagrams of `size` bytes come in frames of 1,500 bytes, one frame in a hundred
/// is lost, and the kernel waits `seconds` for the missing fragments.
double fragments_waiting(double rate, int size, double seconds);
