// frame/start_up.h: the steps that come before every run mode.
#pragma once

/// Opens /dev/null as descriptors 0 to 2 where the caller closed them: the lock
/// file must not become standard output.
void occupy_standard_descriptors();

/// Takes the program's name and folder from `path`, as it was called.
void name_program(const char* path);

/// Seeds the random generator, takes the locale, names the program after
/// argv[0], and brings the settings into force: the configuration file (a
/// first one is written where there is none), then the command line. May end
/// the process with status 1.
void load_settings(int argc, char** argv);

/// Tells who is starting, and sees to the folder of the log file; ends the
/// process with status 1 if a log is wanted and can't be had.
void announce_start();
