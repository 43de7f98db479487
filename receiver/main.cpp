#include <sys/resource.h>

#include <csignal>
#include <iostream>
#include <memory>

#include "receiver/events.h"
#include "receiver/ledger.h"
#include "receiver/names.h"
#include "receiver/options.h"
#include "receiver/receiver.h"
#include "receiver/report.h"
#include "receiver/socket.h"
#include "receiver/store.h"

namespace {

constexpr int kTickMs = 100;
constexpr int kMostBatchesAtEnd = 10'000;

volatile std::sig_atomic_t stop_asked = 0;

void end_on_signals() {
  struct sigaction action {};
  action.sa_handler = [](int) { stop_asked = 1; };
  sigaction(SIGTERM, &action, nullptr);
  sigaction(SIGINT, &action, nullptr);
}

/// Every unfinished file is an open one.
void allow_many_files() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  (void)setrlimit(RLIMIT_NOFILE, &limit);  // else files over the limit are refused
}

int fail(int status, const std::string& text) {
  std::cerr << "tarnwick-receive: " << text << "\n";
  return status;
}

std::string ledger_path(const Options& options, const std::string& hidden) {
  return options.ledger.empty() ? hidden + "/ledger.sqlite" : options.ledger;
}

int run_report(const Options& options) {
  std::string error;
  const std::string path = ledger_path(options, options.store.into + "/" + kHiddenFolder);
  const std::unique_ptr<Ledger> ledger = Ledger::open_to_read(path, error);
  if (!ledger) return fail(kExitStorage, error);
  return print_report(*ledger, options.report_options, std::cout) == 0 ? kExitOk : kExitNotWhole;
}

/// Receives until a signal or --count; then what waits in the socket is taken,
/// too.
void receive(const Options& options, UdpSocket& socket, Receiver& receiver) {
  const DatagramTaker take = [&](const unsigned char* bytes, std::size_t size,
                                 const sockaddr_in& from) { receiver.take(bytes, size, from); };
  const auto batch = [&] { return socket.receive(take, [&] { receiver.end_batch(); }); };
  const auto is_done = [&] { return options.count != 0 && receiver.delivered() >= options.count; };
  std::uint64_t batches = 0;
  while (stop_asked == 0 && !is_done()) {
    const bool idle = batch() == 0;
    if (idle) socket.wait(kTickMs);
    // the clock is cheap, but not for every batch
    if (idle || ++batches % 64 == 0) receiver.tick(socket.kernel_drops());
  }
  for (int i = 0; i < kMostBatchesAtEnd && !is_done() && batch() > 0; ++i) {
  }
}

int run_receiver(const Options& options) {
  Store store(options.store);
  if (!store.error().empty()) return fail(kExitStorage, store.error());
  std::string error;
  const std::unique_ptr<Ledger> ledger =
      Ledger::open(ledger_path(options, store.hidden_path()), error);
  if (!ledger) return fail(kExitStorage, error);
  UdpSocket socket(options.at);
  if (!socket.error().empty()) return fail(kExitSocket, options.listen + ": " + socket.error());

  Events events(options.json);
  if (!socket.warning().empty()) events.warning(socket.warning());
  Receiver receiver(options, store, *ledger, events);
  end_on_signals();
  receiver.resume();
  events.listening(options.listen, options.store.into);
  receive(options, socket, receiver);
  receiver.end(socket.kernel_drops());
  events.ended(receiver.delivered());
  return kExitOk;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  const int status = parse_options(argc, argv, options);
  if (status >= 0) return status;
  allow_many_files();
  return options.report ? run_report(options) : run_receiver(options);
}
