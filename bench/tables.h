// bench/tables.h: the measurements; each prints its tables and what to know of
// them.
#pragma once

#include "bench/lab.h"

void measure_sending(const Extent& extent);
void measure_goodput(const Extent& extent);
void measure_pacing(const Extent& extent);
void measure_walk(const Extent& extent);
void measure_open_files(const Extent& extent);
void measure_small_files(const Extent& extent);

/// What a copy of the bench, started by measure_sending(), does: sends the file
/// once and prints the seconds.
int send_once(const std::string& file, const std::string& datagram, const std::string& port);
