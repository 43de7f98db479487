// What is counted without a record, and what is old enough to go.
#include "receiver/ledger/ledger.h"

std::string Ledger::count_refusals(const Refusals& refusals, double real) {
  for (const auto& [why, count] : refusals) {
    Run run(count_refusal_);
    run.put_bytes(why);
    run.put_number(count);
    run.put_real(real);
    if (run.step() != SQLITE_DONE) return write_error();
  }
  return "";
}

Refusals Ledger::refusals() {
  Refusals refusals;
  Run run(refusals_);
  while (next(run)) {
    const std::string why = run.take_bytes();
    run.take_number(refusals[why]);
  }
  return refusals;
}

std::optional<std::uint64_t> Ledger::prune(double before, std::uint64_t most) {
  std::uint64_t gone = 0;
  for (const Statement* statement : {&prune_transfers_, &prune_journal_}) {
    Run run(*statement);
    run.put_real(before);
    run.put_number(most);
    if (run.step() != SQLITE_DONE) return {};
    gone += static_cast<std::uint64_t>(sqlite3_changes(db_.get()));
  }
  return gone;
}
