// softlib/file_system.h: looks at files and folders, and makes folders.
//
// Nothing here prints or ends the process; a failed system call shows only in
// the result. Symbolic links are followed.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

/// True if stat() succeeds, whatever kind of object it is.
bool file_exists(const std::string& path);

/// True if `path` is a regular file.
bool file_is_regular(const std::string& path);

/// Returns the size in bytes; 0 when there is no such file.
std::int64_t get_file_size(const std::string& path);

/// Returns the last modification in seconds since 1970; 0 when there is no such file.
std::time_t get_file_mtime(const std::string& path);

/// What tells one state of a file from another: which file it is, its size in
/// bytes, its last modification and its last change (of contents, owner, mode,
/// names ...), both to the nanosecond. No program can set the time of the last change.
struct FileStamp {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::int64_t size = 0;
  std::int64_t modified_s = 0;
  std::int64_t modified_ns = 0;
  std::int64_t changed_s = 0;
  std::int64_t changed_ns = 0;
};
bool operator==(const FileStamp& a, const FileStamp& b);

/// Returns the stamp of the file that `st` describes.
FileStamp file_stamp(const struct stat& st);

/// Returns the present stamp of the open file `fd`; nothing if fstat(2) fails.
std::optional<FileStamp> file_stamp(int fd);

/// Returns the working folder; "" if it is unknown, since it was removed or is too deep.
std::string get_cur_dir();

/// True if `dir`/`name` (`name` alone when `dir` is empty) can be opened as a
/// folder. A folder without read permission does not count as one.
bool is_dir(const std::string& dir, const std::string& name);

/// True if `dir`/`name` can be opened and holds only "." and "..".
bool dir_is_empty(const std::string& dir, const std::string& name);

/// True for "." and "..", which every folder yields.
bool is_dot_entry(const char* name);

/// Creates the folder `path` and all missing folders above it, mode 0777 less
/// the umask. Every "\" in `path` becomes "/" in the caller's own string.
/// Returns false at the first level that can't be created; the levels above it
/// stay. Returns true for an empty path.
bool MakeDir(std::string& path);
