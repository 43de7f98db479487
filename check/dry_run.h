// check/dry_run.h: what the sender would do with each file, if it started now.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ground/findings.h"
#include "state/scan_folder.h"

/// What would happen to a file in the first pass.
struct Verdict {
  std::string path;
  bool goes = false;
  std::string why;        ///< why it stays
  std::int64_t size = 0;  ///< bytes; 0 if it stays
  std::string receiver;   ///< ADDRESS:PORT
  std::string arrives;    ///< path at the receiver
  double seconds = 0;     ///< how long it takes to send
};

/// Walks `folders` as the sender would, and checks names, links and permissions. Without
/// `judge` no file is opened and no verdict is returned. `cur_folder` is set meanwhile.
std::vector<Verdict> walk_dry(std::vector<scan_folder>& folders, bool judge, int card_speed,
                              Findings& findings);
