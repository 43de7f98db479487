// softlib/keyboard.h: looks at the console for a key without waiting.
//
//   if (escape_was_pressed()) request_stop();
#pragma once

/// The key that stops a run; end of input on standard input counts as it.
constexpr int kEscapeKey = 27;

/// True if a character was waiting on standard input; it has then been taken.
/// The terminal reads character by character, without echo, only during the
/// call; signals wait for its end. False when the descriptor can't be polled,
/// and in a background job of the terminal, which stays untouched.
bool kbhit();

/// The character that the last successful kbhit() took; 0 before the first.
int getch();

/// True if a key was waiting and it is the escape key; any other is dropped.
bool escape_was_pressed();
