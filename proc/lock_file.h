// proc/lock_file.h: opens and reads a lock file in a folder where others may write, too.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "ground/owners.h"
#include "proc/shared_data.h"

/// Opens `path` for reading and writing, and creates it with mode 0600 if it is
/// missing. Returns an empty Fd if that fails, or if the file can't be trusted:
///
/// - it lies behind a stranger's link (softlib/links.h), is not a regular file, or
///   has a second name, so that writing to it would change something else;
/// - it belongs to a stranger (neither root nor our effective user), unless it
///   names a process of that stranger: with a record that names somebody else's
///   process, the stranger could have that process killed.
Fd open_lock_file(const std::string& path);

/// Like open_lock_file(), but creates nothing: returns an empty Fd if there is no file.
Fd find_lock_file(const std::string& path);

/// Returns the record in the `size` bytes at `bytes`; nothing if they are too few.
std::optional<shared_data> record_in(const unsigned char* bytes, std::size_t size);

/// Returns the record in the open lock file; nothing if the file is too short.
std::optional<shared_data> read_record(int fd);

/// True if `pid` names one process. kill(2) takes 0 and less for a group of processes, or
/// for all.
inline bool names_one_process(int pid) { return pid > 0; }

/// Returns the process id in the lock file `path`; nothing if there is no file or no
/// whole record in it. Never waits.
std::optional<int> recorded_pid(const std::string& path);
