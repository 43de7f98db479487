// softlib/open_files.h: does any process on this machine hold a file open?
//
// The answer is asked for every candidate file and nothing is kept between two
// questions, so it is put with as few system calls as there are descriptors.
#pragma once

#include <string>

/// Compares `path`, to the letter, with the target of every descriptor of every
/// process in /proc that this process may read, but for its own descriptor
/// `except`. 0: nobody holds it; 1: somebody does; -1: it can't be told, since
/// /proc can't be read, or descriptors or memory ran out. A path not spelled as
/// the kernel spells it ("//", "..", through a symbolic link) is never found.
int check_open_file(const std::string& path, int except = -1);

/// The same for the process `pid`, a name in the open folder `proc`; 0 also when
/// it has ended or may not be looked into.
int check_proc_dir(int proc, const char* pid, const std::string& path, int except);
