// receiver/ledger/schema.h: the ledger's tables, and how those of earlier versions become
// the present ones.
#pragma once

#include <sqlite3.h>

#include <string>

/// The PRAGMA user_version of the present tables.
constexpr int kSchema = 3;

/// Brings the tables of the schema `from` (0: there are none) to the present one, in one
/// transaction: a kill or a full disk on the way leaves them as they were. "" or a text
/// for the user.
std::string bring_up_to_date(sqlite3* db, int from);
