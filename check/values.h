// check/values.h: values that can be read, but mean no good.
#pragma once

#include "check/origins.h"
#include "ground/findings.h"

/// Of the settings in force, to which `words` led.
void check_values(const ReadWords& words, Findings& findings);
