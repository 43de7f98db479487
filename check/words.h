// check/words.h: finds words of the command line and of configuration files that do nothing,
// or something else than they seem to do.
#pragma once

#include "check/origins.h"
#include "ground/findings.h"

void check_words(const ReadWords& words, Findings& findings);
