// check/reasons.h: says in words why a file stays.
#pragma once

#include <string>

#include "scan/readiness.h"
#include "send/send_file.h"

/// "" for a file that is ready.
std::string why_not(Readiness readiness);

/// "" for a file that can be sent.
std::string why_not(Sendable sendable);
