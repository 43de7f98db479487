// bench/tables.h: the measurements; each prints its tables and what to know of
// them.
#pragma once

#include <string>
#include <vector>

#include "bench/lab.h"

void measure_sending(const Extent& extent);
void measure_sealing(const Extent& extent);
void measure_goodput(const Extent& extent);
void measure_pacing(const Extent& extent);
void measure_walk(const Extent& extent);
void measure_open_files(const Extent& extent);
void measure_small_files(const Extent& extent);

/// What a copy of the bench, started by a measurement, does with FILE, DATAGRAM, PORT and
/// perhaps a percentage of repair parts, empty for a seal without any: sends the file once,
/// prints the seconds, those that it ran, and the most memory (RSS, MiB) that it held.
int send_once(const std::vector<std::string>& words);
