// scan/open_files.h: does any process on this machine hold a file open?
//
// The answer is asked for every candidate file and nothing is kept between two
// questions, so it is put with as few system calls as there are descriptors.
#pragma once

#include <string>

/// Compares `path`, to the letter, with the target of every descriptor of every
/// process in /proc that this process may read. 0: nobody holds it; 1: somebody
/// does; -1: /proc can't be opened. A path not spelled as the kernel spells it
/// ("//", "..", through a symbolic link) is never found.
int check_open_file(const std::string& path);

/// 1 if a descriptor of the process `pid`, a name in the open folder `proc`,
/// leads to `path`; else 0, also when its descriptors can't be read.
int check_proc_dir(int proc, const char* pid, const std::string& path);
