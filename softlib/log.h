// softlib/log.h: the log file and the time stamps in it.
//
// The file is opened and closed for every entry, so others may move or cut it
// while the program runs.
#pragma once

#include <string>

/// Local time now: "%d/%m/%Y %X" when `full`, else "%X", as strftime() writes
/// it in the locale in force; at most 39 bytes, "" if it would not fit.
std::string str_time(bool full);

/// Appends `text` and "\n" to `file`, with str_time(true) and " > " before it
/// when `stamp`. An entry is lost if `file` can't be opened, as behind a stranger's
/// link (softlib/links.h), or written; the system's log then gets a warning, once
/// until an entry is written again.
void write_log(const std::string& file, const std::string& text, bool stamp);

/// Sees to the folder of the log file `file`: true if the path names none, it
/// exists, or it could be created (one level, mode 0777 less the umask).
bool LogDir(const std::string& file);
