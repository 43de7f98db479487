// scan/scan_list.h: reads the list of folders to scan.
#pragma once

#include <functional>
#include <istream>
#include <optional>
#include <string>

#include "state/scan_folder.h"

/// Builds `scan_list` anew: from the file `scan_list_name`, or, when that is
/// empty, with the one folder `sdir`. If the file can't be opened, the list stays
/// empty and nothing is reported. At `verboze` 1 and up every line read is shown.
void make_scan_list();

/// Returns the one folder that the settings name, which is scanned if there is no list.
scan_folder folder_of_settings();

/// How the reading of the scan list file ended.
enum class ListEnd { kWhole, kMissing, kBroken };

/// Reads the file `scan_list_name`. Calls `heard` with every line and the folder that it
/// stands for; see parse_scan_line().
ListEnd read_scan_list(
    const std::function<void(const std::string&, std::optional<scan_folder>)>& heard);

/// Does the same with the lines of `in`, up to its end or its failure.
ListEnd read_scan_list(
    std::istream& in,
    const std::function<void(const std::string&, std::optional<scan_folder>)>& heard);

/// Returns `path` as an absolute path; a relative one starts at the working folder.
std::string make_absolute(const std::string& path);

/// Reads a line "ADDRESS[:PORT] FOLDER [RECEIVER FOLDER]". Returns nothing for a
/// line without a space or without a folder. Only spaces separate the fields (tabs do
/// not); the receiver folder is the whole rest of the line.
std::optional<scan_folder> parse_scan_line(const std::string& line);
