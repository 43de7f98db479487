// scan/file_ready.h: sends a file if it is ready, and removes it afterwards.
#pragma once

#include <string>

#include "softlib/entry.h"

/// Tests the file (name mask, extension, size, open elsewhere, age) and sends it if
/// it is ready. A sent file is deleted, unless it was moved to the trash, counted and
/// logged. Returns 1 if it was sent, else 0.
///
/// The escape key during the transfer requests a stop. A socket error and the
/// 11th failed removal end the process with status 1.
int send_if_ready(const Entry& entry);

/// Returns the path of the file's folder below the scan folder `abs_path`, without
/// slashes at its ends; "" for a file at the top. Exactly as many characters as
/// `abs_path` has, and one more, are cut off the front.
std::string relative_sub_folder(const std::string& path, const std::string& abs_path);
