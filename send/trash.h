// send/trash.h: moves a sent file aside and notes it in the trash journal.
#pragma once

#include <string>

#include "send/header_packet.h"
#include "send/source_file.h"

/// The 32 bits of `value` in upper-case hexadecimal, filled with "0" on the
/// left to at least `width` characters.
std::string int2hex(int value, int width);

/// "00", send time, low half of the transfer id, "0000", path CRC: eight
/// hexadecimal digits each.
std::string trash_name(const file_info& info);

/// Renames the sent file to its trash name in `trash_path`, made when missing, and
/// appends "name path" to the journal there before. A journal that can't be opened
/// or written costs its line, a failing rename leaves the file where it is; neither
/// is a failure of the transfer. A file that is not as it was sent any more, or that
/// somebody has opened since, stays and gets no line.
void move_to_trash(SourceFile& file, const file_info& info);

/// Appends `line` and a line end to the journal, an entry of the open `folder`: whole
/// or not at all. False, with nothing written, if it can't be opened under the rule
/// of softlib/links.h, is not a regular file or has no room.
bool note_in_journal(int folder, const std::string& journal, const std::string& line);
