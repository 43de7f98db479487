// receiver/check/check.h: what will go wrong with these options, told before anything comes.
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

/// `check`: prints what there is to say. Returns the exit status: 0 nothing, 1 warnings,
/// 2 it would not run.
int run_check(const Options& options);

/// Milliseconds for which a buffer of `bytes` holds what comes at `rate` Mbit/s of
/// 1,048,576 bits.
double milliseconds_held(double bytes, double rate);

/// Bytes of fragments that wait for others that were lost, at `rate` Mbit/s of 1,048,576
/// bits: of datagrams of `size` bytes in frames of 1,500 where one in a hundred is lost and
/// the kernel waits `seconds`.
double fragments_waiting(double rate, int size, double seconds);
