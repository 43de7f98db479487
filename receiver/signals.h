// receiver/signals.h: what the operator asks of a running receiver by signals.
#pragma once

/// From here on the signals are noted, for the functions below; SIGPIPE is ignored: a
/// reader that goes away costs the text only.
void note_signals();

/// SIGTERM or SIGINT came: end in order.
bool stop_was_asked();

/// SIGHUP came since the last call: open the log anew.
bool reopening_was_asked();

/// SIGUSR1 came since the last call: tell the state.
bool state_was_asked();
