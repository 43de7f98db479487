// send/send_file.h: sends one file to the receiver of `cur_folder`.
#pragma once

#include <string>

#include "send/source_file.h"
#include "send/transfer.h"

/// Folder path at the receiver of the transfer under way, or of the last.
extern std::string pth;

/// Whether SendFile() would send a file, as far as that can be told before.
enum class Sendable {
  kYes,
  kMissing,    ///< not there, or not to be opened
  kIrregular,  ///< a pipe, device or socket
  kNoSize,     ///< it has no end
};
Sendable sendable(const SourceFile& file);

/// False if the settings would send less than the whole of a file: no header packets or
/// no passes.
bool settings_send_it_whole();

/// Sends the file in `data_send` passes, each of `head_send` header packets and
/// all data packets, then moves it to the trash when that is active. `sub` is the
/// path of its folder below the scan folder, without slashes at its ends; `kind`
/// the `file_kind` of the wire. `sock` must be open and `cur_folder` set. Returns
/// kSent, kNotSent, kEscape or kSocketError.
///
/// A file that is not open, changes or is opened by others meanwhile, or would not
/// go out whole is not sent; what somebody took away is. Ends the process with
/// status 1 if the receiver's address is none.
int SendFile(SourceFile& file, const std::string& sub, unsigned short kind);

/// The same for the file `path`, looked at and opened here.
int SendFile(const std::string& path, const std::string& sub, unsigned short kind);
