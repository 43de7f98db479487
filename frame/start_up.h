// frame/start_up.h: the steps that the run modes share at both ends of a run.
#pragma once

/// Gives descriptors 0 to 2 to /dev/null where the caller closed them: the lock
/// file must not become standard output.
void occupy_standard_descriptors();

/// Seeds the random generator, takes the locale, names the program after
/// argv[0], and brings the settings into force: the configuration file (a
/// first one is written where there is none), then the command line. May end
/// the process with status 1.
void load_settings(int argc, char** argv);

/// Tells who is starting, and sees to the folder of the log file; ends the
/// process with status 1 if a log is wanted and can't be had.
void announce_start();

/// Writes the start line of the log, builds the scan list and opens the socket;
/// raises the limit of open descriptors so that deep folders can be walked.
/// False, after its message and a pause, if there is no socket.
bool start_sending();

/// Closes the socket and writes the stop line of the log. Gives the exit status
/// of an orderly end, 0.
int shut_down();
