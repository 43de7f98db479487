// check/own_files.h: checks the sender's own files: configuration, log, metrics, trash.
#pragma once

#include <string>
#include <vector>

#include "check/folders.h"
#include "ground/findings.h"

/// Checks who may change the configuration file `read`; "": none was read.
void check_config(const std::string& read, Findings& findings);

/// Checks permissions and room for the log, if one is kept.
void check_log(Findings& findings);

/// Checks permissions for the file of metrics, if one is wanted.
void check_metrics(Findings& findings);

/// Checks permissions, room and place of the trash, if it is used.
void check_trash(const std::vector<scan_folder>& folders, Findings& findings);

/// Returns the paths that should not lie in a scan folder.
std::vector<OwnPath> own_paths(const std::string& config);
