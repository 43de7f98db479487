// scan/file_ready.h: may a file go now, and what becomes of it afterwards.
#pragma once

#include <string>

#include "softlib/entry.h"

/// Tests the file (name mask, extension, size, open elsewhere, age), sends it if
/// it is ready, then deletes it unless the trash has it, counts and logs it. 1 if
/// it was sent, 0 in every other case.
///
/// The escape key during the transfer requests a stop. A socket error and the
/// 11th failed removal end the process with status 1.
int send_if_ready(const Entry& entry);

/// The path of the file's folder below the scan folder `abs_path`, without
/// slashes at its ends: exactly `abs_path` and one more character are cut off
/// the front. "" for a file at the top.
std::string relative_sub_folder(const std::string& path, const std::string& abs_path);
