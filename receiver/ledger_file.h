// receiver/ledger_file.h: the ledger's file and its tables.
#pragma once

#include <string>

#include "receiver/sqlite.h"

/// Opens the file `path` for writing, with the ledger's tables in it; creates what
/// is missing. On failure `error` is a text for the user, otherwise "", and what it
/// gives is of no use, or null.
Db open_ledger_file(const std::string& path, std::string& error);

/// The same of a file that is there, for reading only, while a receiver writes to
/// it or where nothing may be written.
Db open_ledger_file_to_read(const std::string& path, std::string& error);
