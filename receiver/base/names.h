// receiver/base/names.h: file names off the wire made fit for this file system.
//
//   safe_name(from_wire(name, charset))
//   safe_folders(from_wire(folder, charset))
//
// What can't be a name is escaped, visibly and reversibly: a byte becomes "%"
// and its two upper-case hexadecimal digits. from_wire() escapes a "%" that two
// hexadecimal digits follow; from there on every "%XX" is an escape, so that
// nothing is escaped twice and the name can be told from what it became.
#pragma once

#include <climits>
#include <cstddef>
#include <string>
#include <vector>

/// The folder inside the receiving folder that holds the receiver's own files.
/// Names that begin like this are reserved for the receiver.
constexpr char kHiddenFolder[] = ".tarnwick";

/// Converts `text` from the wire's code page (cp1251) to `charset`. A byte that has no
/// meaning there (0x98), or no character in `charset`, comes out as "%XX" of
/// the wire's byte; so does an escape-like "%". If is_charset(charset) is false
/// all other bytes stay as they are, and in cp1251 itself, 0x98 too.
std::string from_wire(const std::string& text, const std::string& charset);

/// Returns `name`, which from_wire() returned, as one component of a path: control
/// characters, "/" and DEL are escaped; an empty name becomes "%00", "." and
/// ".." "%2E" and "%2E%2E", and in a name that begins like kHiddenFolder the
/// first byte is escaped. What is too long is cut by fit_name(); only that is
/// not reversible.
std::string safe_name(const std::string& name);

/// The components of the folder path `path`, split at "/", empty ones dropped
/// (a leading "/" with them), each by safe_name().
std::vector<std::string> safe_folders(const std::string& path);

/// Returns "a/b/" for the folders "a" and "b"; "" for no folders.
std::string joined_path(const std::vector<std::string>& folders);

/// `name` with `suffix` before its extension (from the last ".", at most 32
/// bytes). What comes before is cut, at a character's start in UTF-8, so that
/// the whole takes no more than `limit` bytes.
std::string with_suffix(const std::string& name, const std::string& suffix,
                        std::size_t limit = NAME_MAX);

/// Returns `name`. A name longer than `limit` bytes is cut and gets "~" and its CRC-32 in
/// eight upper-case hexadecimal digits as a suffix.
std::string fit_name(const std::string& name, std::size_t limit = NAME_MAX);

/// True if names can be converted to `charset`: the system knows it, and "/",
/// letters and digits are the bytes there that they are in ASCII.
bool is_charset(const std::string& charset);
