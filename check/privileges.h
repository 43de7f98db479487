// check/privileges.h: checks the sender's privileges and its standard input.
#pragma once

#include "ground/findings.h"

/// Checks whether the socket gets its send buffer.
void check_socket(Findings& findings);

/// Checks whether the search for open files sees all processes.
void check_open_file_search(Findings& findings);

/// True if standard input is at its end, which stops a run in the foreground.
bool input_is_at_end();

/// Checks whether the modes that read the keyboard can run.
void check_input(Findings& findings);
