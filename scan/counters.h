// scan/counters.h: what the scanner counts over the life of the process.
#pragma once

#include <cstdint>

/// Files sent from the folder being walked. The frame reports and resets it.
extern std::int32_t files_count;

/// Files sent since the process began.
extern std::int32_t gfiles_count;

/// How many removals of folders and of sent files failed.
extern std::int32_t accs_err;

/// The process ends when `accs_err` exceeds this number.
constexpr std::int32_t kToleratedAccessErrors = 10;

/// Counts one failed removal, after a pause of 1 s. The 11th ends the process
/// with status 1, after a message and, if `log_stop`, an entry in the log.
void count_access_error(bool log_stop);
