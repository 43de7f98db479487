// check/dry_run.h: what the sender would do with each file, if it started now.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ground/findings.h"
#include "state/scan_folder.h"

/// What would become of a file in the first pass.
struct Verdict {
  std::string path;
  bool goes = false;
  std::string why;        ///< it stays
  std::int64_t size = 0;  ///< bytes; 0 for what stays
  std::string receiver;   ///< ADDRESS:PORT
  std::string arrives;    ///< path there
  double seconds = 0;     ///< for all of it
};

/// Walks `folders` as the sender would, and looks at names, links and rights. Unless
/// `judge`, no file is opened, and no verdict returned. `cur_folder` is set meanwhile.
std::vector<Verdict> walk_dry(std::vector<scan_folder>& folders, bool judge, int card_speed,
                              Findings& findings);
