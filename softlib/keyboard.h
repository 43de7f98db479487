// softlib/keyboard.h: looks at the console for a key without waiting.
//
//   if (escape_was_pressed()) request_stop();
#pragma once

/// The key that stops a run. End of input on standard input counts as this key.
constexpr int kEscapeKey = 27;

/// Takes a character that waits on standard input, and returns true if there was
/// one. The terminal reads character by character, without echo, only during the
/// call; signals wait for its end. Returns false if the descriptor can't be polled,
/// and in a background job, which does not touch the terminal.
bool kbhit();

/// Returns the character that the last successful kbhit() took; 0 before the first.
int getch();

/// True if the escape key was waiting. Any other key is dropped.
bool escape_was_pressed();
