#include "receiver/signals.h"

#include <csignal>
#include <initializer_list>

namespace {

volatile std::sig_atomic_t stop = 0;
volatile std::sig_atomic_t reopening = 0;
volatile std::sig_atomic_t state = 0;

void note(int signal) { (signal == SIGHUP ? reopening : signal == SIGUSR1 ? state : stop) = 1; }

/// A signal between the look and the clearing is answered by the same answer.
bool take(volatile std::sig_atomic_t& asked) {
  const bool was_asked = asked != 0;
  if (was_asked) asked = 0;
  return was_asked;
}

}  // namespace

void note_signals() {
  struct sigaction action {};
  action.sa_handler = note;
  action.sa_flags = SA_RESTART;
  for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGUSR1}) sigaction(signal, &action, nullptr);
  (void)std::signal(SIGPIPE, SIG_IGN);
}

bool stop_was_asked() { return stop != 0; }
bool reopening_was_asked() { return take(reopening); }
bool state_was_asked() { return take(state); }
