// check/running.h: the lock, who holds it, and other copies nearby.
#pragma once

#include <string>

#include "ground/findings.h"

/// Whether the lock can be had for the mode that is set, and copies that read the same
/// configuration file `config` ("" for none). Nothing is created.
void check_running(const std::string& config, Findings& findings);
