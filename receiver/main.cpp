#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "receiver/base/now.h"
#include "receiver/check/check.h"
#include "receiver/commands.h"
#include "receiver/deliver/pruning.h"
#include "receiver/deliver/store.h"
#include "receiver/ledger/ledger.h"
#include "receiver/options.h"
#include "receiver/receiver.h"
#include "receiver/sandbox/sandbox.h"
#include "receiver/signals.h"
#include "receiver/take/intake.h"
#include "receiver/take/socket.h"
#include "receiver/tell/events.h"
#include "receiver/tell/log_file.h"
#include "receiver/tell/outlet.h"
#include "receiver/tell/service_manager.h"

namespace {

constexpr auto kTick = std::chrono::milliseconds(100);
constexpr auto kLastBatches = std::chrono::milliseconds(1000);
constexpr auto kLastWords = std::chrono::milliseconds(300);  // for a reader that is slow

std::unique_ptr<Ledger> open_ledger(const Options& options, const Store& store,
                                    std::string& error) {
  if (!options.ledger.empty()) return Ledger::open(options.ledger, error);
  const std::string path = store.hidden_path() + "/" + kLedgerName;
  return Ledger::open({Fd(fcntl(store.hidden_folder(), F_DUPFD_CLOEXEC, 0)), kLedgerName, path},
                      error);
}

/// Hands the datagrams of `batch` over one by one; false if there were none.
bool settle(const Intake::Batch& batch, Receiver& receiver) {
  for (const Taken& taken : batch) {
    for (std::size_t at = 0, left = taken.datagrams(); left > 0; --left, at += taken.segment) {
      const std::size_t size = std::min(taken.segment, taken.size - at);
      receiver.take(taken.bytes.get() + at, size, taken.from, taken.came);
    }
  }
  if (!batch.empty()) receiver.end_batch();
  return !batch.empty();
}

/// Where events and warnings go.
class Outputs {
 public:
  explicit Outputs(const Options& options) {
    if (options.log.empty()) return;
    log_.emplace(options.log);
    redirect();
  }

  /// "" when usable; else the text for the user.
  std::string error() const { return log_ ? log_->error() : ""; }

  /// Folders that are written to.
  std::vector<int> folders() const {
    return log_ ? std::vector<int>{log_->folder()} : std::vector<int>();
  }

  /// Opens the log anew; "" or why that failed.
  std::string reopen() {
    if (!log_) return "";
    const bool reopened = log_->reopen();
    if (reopened) redirect();
    return log_->error();
  }

  void drain() {
    for (Outlet* outlet : {&events, &warnings}) outlet->drain(kLastWords);
  }

  Outlet events{STDOUT_FILENO};
  Outlet warnings{STDERR_FILENO};

 private:
  void redirect() {
    for (Outlet* outlet : {&events, &warnings}) outlet->redirect(log_->fd());
  }

  std::optional<LogFile> log_;
};

void answer_signals(const Intake& intake, Receiver& receiver, Outputs& outputs, Events& events) {
  if (reopening_was_asked()) {
    const std::string failure = outputs.reopen();
    if (!failure.empty()) events.warning(failure);
    receiver.update_metrics(intake.counts());
  }
  if (state_was_asked()) receiver.tell_state(intake.counts());
}

/// Receives until a signal or --count; then what waits in the sockets is settled, too.
void receive(const Options& options, Intake& intake, Receiver& receiver, Outputs& outputs,
             Events& events, ServiceManager& manager, Pruning& pruning) {
  const auto is_done = [&] { return options.count != 0 && receiver.delivered() >= options.count; };
  while (!stop_was_asked() && !is_done()) {
    (void)settle(intake.next(kTick), receiver);
    const Now until = intake.moment();
    const Now now = Now::read();
    receiver.tick(now, until, intake.counts());
    manager.alive(now.monotonic);
    pruning.tick(now);
    answer_signals(intake, receiver, outputs, events);
  }
  const auto end = std::chrono::steady_clock::now() + kLastBatches;
  intake.finish();
  while (!is_done() && settle(intake.next({}), receiver) &&
         std::chrono::steady_clock::now() < end) {
  }
}

/// From here on nothing but what lies below these folders can be written.
void confine(const Store& store, const Ledger& ledger, const Receiver& receiver,
             const Outputs& outputs, Events& events) {
  std::vector<int> folders = store.folders();
  folders.push_back(ledger.folder());
  folders.push_back(receiver.metrics_folder());
  for (const int folder : outputs.folders()) folders.push_back(folder);
  const std::string lacking = enter_sandbox(folders);
  if (!lacking.empty()) events.warning(lacking);
}

bool open_sockets(const Options& options, std::vector<UdpSocket>& sockets, std::string& error) {
  for (std::size_t i = 0; i < options.at.size(); ++i) {
    UdpSocket& socket = sockets.emplace_back(options.at[i]);
    for (const ip_mreqn& group : options.groups) socket.join(group);
    error = options.listen[i] + ": " + socket.error();
    if (!socket.error().empty()) return false;
  }
  return true;
}

int run_receiver(const Options& options) {
  Store store(options.store);
  if (!store.error().empty()) return fail(kExitStorage, store.error());
  std::string error;
  const std::unique_ptr<Ledger> ledger = open_ledger(options, store, error);
  if (!ledger) return fail(kExitStorage, error);
  std::vector<UdpSocket> sockets;
  if (!open_sockets(options, sockets, error)) return fail(kExitSocket, error);
  Outputs outputs(options);
  if (!outputs.error().empty()) return fail(kExitStorage, outputs.error());
  Events events(options.json, outputs.events, outputs.warnings);
  if (!sockets[0].warning().empty()) events.warning(sockets[0].warning());
  Receiver receiver(receiver_settings(options), store, *ledger, events, Now::read());
  if (!receiver.error().empty()) return fail(kExitUsage, receiver.error());
  ServiceManager manager;
  note_signals();
  if (options.sandbox) confine(store, *ledger, receiver, outputs, events);
  receiver.resume(Now::read());
  for (const std::string& at : options.listen) events.listening(at, options.store.into);
  Intake intake(sockets, options.memory - stash_share(options), options.ignore_source);
  if (!intake.error().empty()) return fail(kExitSocket, intake.error());
  Pruning pruning(*ledger, store.journals_folder(), store.incomplete_folder(), options.prune_age);
  manager.ready();
  receive(options, intake, receiver, outputs, events, manager, pruning);
  manager.stopping();
  receiver.end(intake.counts());
  events.ended(receiver.delivered());
  outputs.drain();
  return kExitOk;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  const int status = parse_options(argc, argv, options);
  if (status >= 0) return status;
  if (options.check) return run_check(options);
  if (options.prune) return run_prune(options);
  return options.report ? run_report(options) : run_receiver(options);
}
