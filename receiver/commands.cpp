#include "receiver/commands.h"

#include <unistd.h>

#include <iostream>
#include <memory>
#include <optional>
#include <utility>

#include "receiver/base/names.h"
#include "receiver/base/now.h"
#include "receiver/base/own_files.h"
#include "receiver/deliver/pruning.h"
#include "receiver/ledger/ledger.h"
#include "receiver/tell/page.h"
#include "receiver/tell/report.h"
#include "receiver/tell/summary.h"

namespace {

/// Writes the page; see PageContent::is_whole() for the status.
int write_page(Ledger& ledger, const std::string& path) {
  PageContent content;
  content.transfers = ledger.all(std::nullopt);
  content.journal = summary_of(ledger.match_journal());
  content.now = Now::read().real;
  content.read_error = ledger.read_error();
  std::string error;
  const Fd folder = open_folder(split_path(path).folder, false, error);
  if (!folder) return fail(kExitStorage, path + ": " + error);
  error = write_text(folder.get(), path, page_of(content));
  if (!error.empty()) return fail(kExitStorage, error);
  return content.is_whole() ? kExitOk : kExitNotWhole;
}

/// Where it lies, for those who do not hold the receiving folder.
std::string ledger_path(const Options& options) {
  const std::string hidden = options.store.into + "/" + kHiddenFolder;
  return options.ledger.empty() ? hidden + "/" + kLedgerName : options.ledger;
}

}  // namespace

int fail(int status, const std::string& text) {
  std::cerr << "tarnwick-receive: " << text << "\n";
  return status;
}

int run_prune(const Options& options) {
  const std::string hidden = options.store.into + "/" + kHiddenFolder;
  const double before = Now::read().real - options.prune_age;
  constexpr std::uint64_t kRows = 200;  // at once: a receiver does not wait for long
  if (access(ledger_path(options).c_str(), F_OK) != 0) {
    return fail(kExitStorage, "there is no ledger " + ledger_path(options));
  }
  std::string error;
  const std::unique_ptr<Ledger> ledger = Ledger::open(ledger_path(options), error);
  if (!ledger) return fail(kExitStorage, error);
  std::uint64_t rows = 0;
  for (std::uint64_t gone = 1; gone > 0; rows += gone) {
    const std::optional<std::uint64_t> now_gone = ledger->prune(before, kRows);
    if (!now_gone) return fail(kExitStorage, "the ledger can't be written");
    gone = *now_gone;
  }
  std::size_t files = 0;
  for (const auto& [given, usual] : {std::pair(options.store.journals, "/journals"),
                                     std::pair(options.store.incomplete, "/incomplete")}) {
    std::string path = given;
    if (given.empty()) path.append(hidden).append(usual);
    const Fd folder = open_folder(path, false, error);
    if (!folder && given.empty()) continue;  // they are kept elsewhere
    if (!folder) return fail(kExitStorage, path.append(": ").append(error));
    files += prune_kept(folder.get(), before);
  }
  std::cout << rows << " records and " << files << " files deleted\n";
  return kExitOk;
}

int run_report(const Options& options) {
  std::string error;
  const std::string path = ledger_path(options);
  const std::unique_ptr<Ledger> ledger = Ledger::open_to_read(path, error);
  if (!ledger) return fail(kExitStorage, error);
  if (!options.html.empty()) return write_page(*ledger, options.html);
  return print_report(*ledger, options.report_options, std::cout) == 0 ? kExitOk : kExitNotWhole;
}
