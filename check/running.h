// check/running.h: checks the lock, who holds it, and which other copies run.
#pragma once

#include <string>

#include "ground/findings.h"

/// Checks whether the lock is free, as the run mode needs it, and whether other copies read
/// the same configuration file `config` ("": none was read). Creates nothing.
void check_running(const std::string& config, Findings& findings);
