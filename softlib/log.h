// softlib/log.h: the log file and the time stamps in it.
//
// The file is opened and closed for every entry, so others may move or truncate
// it while the program runs.
#pragma once

#include <string>

/// Returns the local time: "%d/%m/%Y %X" when `full`, else "%X", as strftime()
/// writes it in the locale in force. It has at most 39 bytes; a longer one is "".
std::string str_time(bool full);

/// Appends `text` and "\n" to `file`, with str_time(true) and " > " before it
/// when `stamp`. An entry is lost if `file` can't be opened (as behind a stranger's
/// link, softlib/links.h) or written. The first loss is a warning in the system's
/// log; later ones are silent until an entry could be written again.
void write_log(const std::string& file, const std::string& text, bool stamp);

/// Creates the folder of the log file `file` if it is missing (one level, mode 0777
/// less the umask). Returns false if it is still missing; true also if the path
/// names no folder.
bool LogDir(const std::string& file);
