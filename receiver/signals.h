// receiver/signals.h: what the operator asks of a running receiver by signals.
#pragma once

/// From here on notes the signals for the functions below, and ignores SIGPIPE: if a reader
/// goes away, only the text is lost.
void note_signals();

/// SIGTERM or SIGINT came: end in order.
bool stop_was_asked();

/// SIGHUP came since the last call: open the log anew.
bool reopening_was_asked();

/// SIGUSR1 came since the last call: tell the state.
bool state_was_asked();
