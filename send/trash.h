// send/trash.h: moves a sent file to the trash and notes it in the trash journal.
#pragma once

#include <string>

#include "send/header_packet.h"
#include "send/source_file.h"

/// Returns the 32 bits of `value` in upper-case hexadecimal, filled with "0" on
/// the left to at least `width` characters.
std::string int2hex(int value, int width);

/// Returns "00", the send time, the low half of the transfer id, "0000" and the path
/// CRC. Time, id and CRC have eight hexadecimal digits each.
std::string trash_name(const file_info& info);

/// Appends "name path" to the journal in `trash_path`, and then renames the sent file
/// to its trash name in that folder, which is made if it is missing. If the journal
/// can't be opened or written, its line is lost; if the renaming fails, the file stays
/// where it is. Neither is a failure of the transfer. A file that has changed since it
/// was sent, or that somebody has opened since, stays and gets no line.
void move_to_trash(SourceFile& file, const file_info& info);

/// Appends `line` and a line end to `journal`, an entry of the open `folder`, whole or
/// not at all. Returns false, with nothing written, if the file can't be opened by the
/// rule of softlib/links.h, is not a regular file, or has no room.
bool note_in_journal(int folder, const std::string& journal, const std::string& line);
