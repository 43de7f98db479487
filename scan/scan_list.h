// scan/scan_list.h: reads the folders to scan.
#pragma once

#include <functional>
#include <istream>
#include <optional>
#include <string>

#include "state/scan_folder.h"

/// Builds `scan_list` anew: from the file `scan_list_name`, or, when that is
/// empty, the one folder `sdir`. A file that can't be opened leaves the list
/// empty without a word. At `verboze` 1 and up every line read is shown.
void make_scan_list();

/// The one folder of the settings, which is scanned when there is no list.
scan_folder folder_of_settings();

/// How the reading of the scan list file ended.
enum class ListEnd { kWhole, kMissing, kBroken };

/// Reads the file `scan_list_name`; `heard` is told every line, and the folder that it
/// stands for.
ListEnd read_scan_list(
    const std::function<void(const std::string&, std::optional<scan_folder>)>& heard);

/// The same of the lines in `in`, to its end or up to its failure.
ListEnd read_scan_list(
    std::istream& in,
    const std::function<void(const std::string&, std::optional<scan_folder>)>& heard);

/// `path`, seen from the working folder.
std::string make_absolute(const std::string& path);

/// One line "ADDRESS[:PORT] FOLDER [RECEIVER FOLDER]" of the file; nothing for
/// a line without a space, or without a folder. Only the space separates; the
/// receiver folder is the whole rest of the line.
std::optional<scan_folder> parse_scan_line(const std::string& line);
