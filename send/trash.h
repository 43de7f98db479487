// send/trash.h: moves a sent file aside and notes it in the trash journal.
#pragma once

#include <string>

#include "send/header_packet.h"
#include "softlib/file_system.h"

/// The 32 bits of `value` in upper-case hexadecimal, filled with "0" on the
/// left to at least `width` characters.
std::string int2hex(int value, int width);

/// "00", send time, low half of the transfer id, "0000", path CRC: eight
/// hexadecimal digits each.
std::string trash_name(const file_info& info);

/// Renames `path` to its trash name in `trash_path`, made when missing, and
/// appends "name path" to the journal there. A journal that can't be opened
/// costs its line, a failing rename leaves the file where it is; neither is a
/// failure of the transfer. A file that is not as it was `sent` any more stays,
/// too.
void move_to_trash(const std::string& path, const file_info& info, const FileStamp& sent);
