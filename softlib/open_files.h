// softlib/open_files.h: does any process on this machine hold a file open?
//
// The search is made anew for every candidate file, so it makes only about one
// system call for each descriptor.
#pragma once

#include <string>

/// Compares `path`, byte by byte, with the target of every descriptor of every
/// process in /proc that this process may read, except its own descriptor
/// `except`. Returns 0 if nobody holds the file, 1 if somebody does, and -1 if it
/// is unknown, since /proc can't be read, or descriptors or memory ran out. A path
/// not spelled as the kernel spells it ("//", "..", through a symbolic link) is
/// never found.
int check_open_file(const std::string& path, int except = -1);

/// Does the same for the one process `pid`, a name in the open folder `proc`.
/// Returns 0 also if the process has ended or may not be looked into.
int check_proc_dir(int proc, const char* pid, const std::string& path, int except);
