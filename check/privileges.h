// check/privileges.h: what the sender may do here, and what it is started with.
#pragma once

#include "ground/findings.h"

/// Whether the socket gets its send buffer.
void check_socket(Findings& findings);

/// Whether the search for open files sees all processes.
void check_open_file_search(Findings& findings);

/// True if standard input is at its end, which stops a run in the foreground.
bool input_is_at_end();

/// Whether the modes with a keyboard can run.
void check_input(Findings& findings);
