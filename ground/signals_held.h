// ground/signals_held.h: a moment without signals.
#pragma once

#include <pthread.h>

#include <csignal>

/// While it lives, blocks all signals for this thread and for every thread that this one
/// starts.
class SignalsHeld {
 public:
  SignalsHeld() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &kept_);
  }
  ~SignalsHeld() { pthread_sigmask(SIG_SETMASK, &kept_, nullptr); }
  SignalsHeld(const SignalsHeld&) = delete;
  SignalsHeld& operator=(const SignalsHeld&) = delete;

 private:
  sigset_t kept_{};
};
