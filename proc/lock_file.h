// proc/lock_file.h: the lock file in a folder where others may write, too.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "ground/owners.h"
#include "proc/shared_data.h"

/// Opens `path` for reading and writing, created with mode 0600 where it is
/// missing. Nothing if that fails, or if the file is not to be believed:
///
/// - it lies behind a stranger's link (softlib/links.h), is no regular file, or
///   has a second name, so that writing to it would change something else;
/// - it belongs to a stranger (neither root nor our effective user), unless it
///   names a process of that stranger: a record that names somebody else's is
///   there to have it killed.
Fd open_lock_file(const std::string& path);

/// The same for a file that is there; nothing is created.
Fd find_lock_file(const std::string& path);

/// The record in the `size` bytes at `bytes`; nothing if they are not a whole one.
std::optional<shared_data> record_in(const unsigned char* bytes, std::size_t size);

/// The record in the open lock file; nothing if it is not a whole one.
std::optional<shared_data> read_record(int fd);

/// True if `pid` can be that of one process: 0 and below name a group of them, or all.
inline bool names_one_process(int pid) { return pid > 0; }

/// The process id in the lock file `path`; nothing if there is no file or no
/// whole record in it. Never waits.
std::optional<int> recorded_pid(const std::string& path);
