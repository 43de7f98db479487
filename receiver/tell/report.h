// receiver/tell/report.h: prints what the ledger holds.
#pragma once

#include <cstdint>
#include <ostream>

class Ledger;

struct ReportOptions {
  bool missing = false;     ///< only paths that never arrived, or arrived incomplete
  bool incomplete = false;  ///< only incomplete transfers
  bool json = false;        ///< one object a line
};

/// Transfers by time of the first packet: when, outcome, size, path, loss of each
/// pass, and for incomplete ones the missing byte ranges. Or, with `missing`,
/// the sender's paths of the journals that are not delivered here; a path that
/// was sent again later and delivered then is only counted. Names are shown by
/// printable(). Returns the number of files listed that did not arrive whole, those
/// still on their way among them; at least 1 if the ledger can't be read.
std::uint64_t print_report(Ledger& ledger, const ReportOptions& options, std::ostream& out);
