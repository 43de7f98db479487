// check/own_files.h: the files that the sender reads and writes for itself: configuration,
// log, trash.
#pragma once

#include <string>
#include <vector>

#include "check/folders.h"
#include "ground/findings.h"

/// The configuration file that was read, "" for none, and who may change it.
void check_config(const std::string& read, Findings& findings);

/// Rights and room for the log, where one is kept.
void check_log(Findings& findings);

/// Rights for the file of metrics, where one is wanted.
void check_metrics(Findings& findings);

/// Rights, room and place of the trash, where it is used.
void check_trash(const std::vector<scan_folder>& folders, Findings& findings);

/// Paths that no scan folder should hold.
std::vector<OwnPath> own_paths(const std::string& config);
