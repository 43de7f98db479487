// check/values.h: finds values that are valid but unlikely to be what the user wants.
#pragma once

#include "check/origins.h"
#include "ground/findings.h"

/// Adds findings about the present settings, which `words` set.
void check_values(const ReadWords& words, Findings& findings);
