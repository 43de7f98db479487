// send/send_file.h: sends one file to the receiver of `cur_folder`.
#pragma once

#include <string>

#include "send/transfer.h"

/// Folder path at the receiver of the transfer under way, or of the last.
extern std::string pth;

/// Sends the file `path` in `data_send` passes, each of `head_send` header
/// packets and all data packets, then moves it to the trash when that is
/// active. `sub` is the path of its folder below the scan folder, without
/// slashes at its ends; `kind` the `file_kind` of the wire. `sock` must be open
/// and `cur_folder` set. Gives kSent, kNotSent, kEscape or kSocketError.
///
/// A file that can't be opened, is not a regular file, changes meanwhile or
/// would not go out whole is not sent. Ends the process with status 1 if the
/// receiver's address is none, or the file vanishes while it is prepared.
int SendFile(const std::string& path, const std::string& sub, unsigned short kind);
