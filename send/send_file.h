// send/send_file.h: sends one file to the receiver of `cur_folder`.
#pragma once

#include <string>

#include "send/source_file.h"
#include "send/transfer.h"

/// Folder path at the receiver for the file being sent, or for the last one.
extern std::string pth;

/// Whether SendFile() would send a file, as far as is known before the transfer.
enum class Sendable {
  kYes,
  kMissing,    ///< it is not there, or can't be opened
  kIrregular,  ///< a pipe, device or socket
  kNoSize,     ///< lseek(2) finds no end
};
Sendable sendable(const SourceFile& file);

/// False if the settings would send less than the whole of a file, since they ask for no
/// header packets or no passes.
bool settings_send_it_whole();

/// Sends the file in `data_send` passes, each of `head_send` header packets and
/// all data packets, then moves it to the trash when that is active. `sub` is the
/// path of its folder below the scan folder, without slashes at its ends; `kind`
/// the `file_kind` of the wire. `sock` must be open and `cur_folder` set. Returns
/// kSent, kNotSent, kEscape or kSocketError.
///
/// Returns kNotSent for a file that is not open, that changes or is opened by another
/// process meanwhile, or that the settings would not send whole; but kSent for one that
/// somebody took away meanwhile. Ends the process with status 1 if the receiver's
/// address is not valid.
int SendFile(SourceFile& file, const std::string& sub, unsigned short kind);

/// Opens the file `path` and sends it in the same way.
int SendFile(const std::string& path, const std::string& sub, unsigned short kind);
