// state/run_log.h: the log of this run, where the user wants one.
//
//   log_plain("Start Tarnwick Server " + str_time(true));
//   log_stamped("Sent file " + path);
//
// Both write to `logs_name` when `logs` is not 0, and do nothing otherwise. How an
// entry is written, and what becomes of one that can't be: softlib/log.h.
#pragma once

#include <string>

/// An entry of `text` as it is.
void log_plain(const std::string& text);

/// An entry of `text` behind the date and the time.
void log_stamped(const std::string& text);
