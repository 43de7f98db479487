// ground/signals_held.h: a moment without signals.
#pragma once

#include <pthread.h>

#include <csignal>

/// Holds back every signal of this thread, and of the threads that it starts meanwhile, for
/// its lifetime.
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
