// scan/scan_list.h: reads the folders to scan.
#pragma once

#include <optional>
#include <string>

#include "state/scan_folder.h"

/// Builds `scan_list` anew: from the file `scan_list_name`, or, when that is
/// empty, the one folder `sdir`. A file that can't be opened leaves the list
/// empty without a word. At `verboze` 1 and up every line read is shown.
void make_scan_list();

/// One line "ADDRESS[:PORT] FOLDER [RECEIVER FOLDER]" of the file; nothing for
/// a line without a space, or without a folder. Only the space separates; the
/// receiver folder is the whole rest of the line.
std::optional<scan_folder> parse_scan_line(const std::string& line);
