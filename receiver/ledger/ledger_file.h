// receiver/ledger/ledger_file.h: the ledger's file and its tables.
#pragma once

#include <string>

#include "ground/owners.h"
#include "receiver/ledger/sqlite.h"

/// Where a ledger lies: `name` in the open `folder`.
struct LedgerPlace {
  Fd folder;
  std::string name;
  std::string path;  ///< both, as the user writes them: for messages
};

/// What the name of a ledger ends with while it is made anew beside a damaged one.
constexpr char kAnew[] = ".anew";

/// Finishes the mending of a run that was killed after it had set the damaged ledger aside.
/// If no file has the ledger's name, and the new one has no log beside it and so is whole,
/// the new one gets the name.
void finish_mending(const LedgerPlace& place);

/// Opens the file for writing, with the ledger's tables in it; creates what is missing.
/// The folder must outlive the connection. `error` becomes "", or a text for the user on
/// failure; the connection returned must then not be used, and may be null.
///
/// The file and those that SQLite keeps beside it must be ours (why_not_ours()).
Db open_ledger_file(const LedgerPlace& place, std::string& error);

/// The same of the file `path` that is there, for reading only, while a receiver writes
/// to it or where nothing may be written; anybody's, and links to it are followed.
Db open_ledger_file_to_read(const std::string& path, std::string& error);
