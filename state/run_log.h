// state/run_log.h: the log of this run, where the user wants one.
//
//   log_plain("Start Tarnwick Server " + str_time(true));
//   log_stamped("Sent file " + path);
//
// Both write to `logs_name` when `logs` is not 0, and do nothing otherwise.
// softlib/log.h says how an entry is written, and what happens if it can't be.
#pragma once

#include <string>

/// Writes `text` as an entry of its own.
void log_plain(const std::string& text);

/// Writes `text` as an entry, with the date and the time before it.
void log_stamped(const std::string& text);
