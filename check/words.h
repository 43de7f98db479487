// check/words.h: words of the command line and of configuration files that do nothing, or
// not what they look like.
#pragma once

#include "check/origins.h"
#include "ground/findings.h"

void check_words(const ReadWords& words, Findings& findings);
