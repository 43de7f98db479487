// receiver/ledger/columns.h: how a transfer's record stands in the ledger's table. The
// one list of columns is in columns.cpp; everything else follows it.
#pragma once

#include <string>

#include "receiver/base/record.h"
#include "receiver/ledger/sqlite.h"

/// "id INTEGER NOT NULL, ...", for CREATE TABLE.
std::string column_definitions();

/// "id, ...", for INSERT and SELECT.
std::string column_names();

/// The same from a table of the older schema `schema`; what it lacks is 0 or "".
std::string column_names_of(int schema);

/// "?, ...", one for each column.
std::string column_places();

/// Binds the record to column_places(), the next ones of `run`. It must outlive the run.
void put_record(Run& run, const TransferRecord& record);

/// Reads what column_names() selected, the next columns of `run`. What somebody else
/// wrote into them is read as some value.
TransferRecord take_record(Run& run);
