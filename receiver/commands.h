// receiver/commands.h: what the program does instead of receiving.
#pragma once

#include <string>

#include "receiver/options.h"

constexpr char kLedgerName[] = "ledger.sqlite";  ///< in the hidden folder

/// Prints the program's name and `text` on standard error; returns `status`.
int fail(int status, const std::string& text);

/// `report`: prints what the ledger holds, or writes the page. Returns the exit status.
int run_report(const Options& options);

/// `prune`: deletes what is old, beside a running receiver, too. Returns the exit status.
int run_prune(const Options& options);
