// receiver/tell/not_arrived.h: the page's section of the files that are not here.
#pragma once

#include <string>
#include <vector>

#include "receiver/base/record.h"
#include "receiver/tell/summary.h"

/// Files of which nothing came, by the journals, and `transfers` (oldest first) that did
/// not arrive whole, with the byte ranges that are missing; newest first.
std::string not_arrived(const std::vector<TransferRecord>& transfers,
                        const JournalSummary& journal);
