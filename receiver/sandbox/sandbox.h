// receiver/sandbox/sandbox.h: takes from the process what a receiver never needs, so that
// a fault that foreign datagrams set off can do less.
//
// Two parts of the kernel do it, each for what it is good at: landlock(7) for files, and
// seccomp(2) for other system calls. Both hold for threads started later and can't be
// taken back. Everything that must be opened elsewhere, sockets first of all, has to be
// open by then; a socket to send on must be connected and is written with send(2).
#pragma once

#include <string>
#include <vector>

/// Enters both parts; a folder of -1 is left out. Returns "", or a text for the user
/// that names what this system or this build lacks: the process is held by the rest.
/// Call it before any thread is started.
std::string enter_sandbox(const std::vector<int>& folders);

/// Files may be written, made, renamed and deleted below the open `folders` only, and no
/// program may be started; reading stays free. Returns "", or why it is not in force.
std::string restrict_files(const std::vector<int>& folders);

/// No socket, no program, no other process, no privilege: these calls fail with EPERM.
/// It is a list of what is denied, so that a library that needs a new harmless call is
/// not broken by it. Returns "", or why it is not in force.
std::string restrict_calls();
