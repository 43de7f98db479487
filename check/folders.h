// check/folders.h: checks the folders to scan, and finds own files that lie in them.
#pragma once

#include <string>
#include <vector>

#include "ground/findings.h"
#include "state/scan_folder.h"

/// Returns the folders that the sender would scan, and adds findings about the list.
std::vector<scan_folder> read_folders(Findings& findings);

/// A file or folder of the sender's own.
struct OwnPath {
  std::string what;
  std::string path;
};

/// Adds findings about each of `folders`, and about `own` paths that lie in one of them.
void check_folders(const std::vector<scan_folder>& folders, const std::vector<OwnPath>& own,
                   Findings& findings);

/// Returns `path` as the kernel would spell it, as far as it exists.
std::string spelled_by_kernel(const std::string& path);

/// True if `path` is `folder` or lies below it; both as the kernel spells them.
bool lies_in(const std::string& path, const std::string& folder);
