// frame/start_up.h: the steps that come before every run mode.
#pragma once

/// Opens /dev/null as descriptors 0 to 2 where the caller closed them: the lock
/// file must not become standard output.
void occupy_standard_descriptors();

/// Takes the program's name and folder from `path`, by which it was called.
void name_program(const char* path);

/// Seeds the random generator, takes the locale, names the program after
/// argv[0], and reads the settings: first the configuration file (which is
/// written if there is none), then the command line. May end the process with
/// status 1.
void load_settings(int argc, char** argv);

/// Prints the banner, and makes the folder of the log file if it is missing. Ends
/// the process with status 1 if a log is wanted and that folder can't be made.
void announce_start();
