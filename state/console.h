// state/console.h: what the user sees of a run, by the level of `verboze`.
//
//   say(1) << "\nfile " << path << " was send.\n";   // verboze 1 and up
//   std::cout << "Can't open socket!" << std::endl;  // always
//
// Only std::cout and std::cerr write to the console, so order and number
// format hold and both can be silenced in one place.
#pragma once

#include <ostream>
#include <string>

/// Returns std::cout when `verboze` is at least `level`, else a stream that drops
/// the text.
std::ostream& say(int level);

/// A name or path for the console. Where standard output is a terminal it is written
/// through escape_unprintable() (softlib/escape.h), since a name could clear the screen
/// or set its title; elsewhere it is written as it is. Keeps a reference to `text`.
struct Shown {
  const std::string& text;
};
inline Shown shown(const std::string& text) { return {text}; }
std::ostream& operator<<(std::ostream& out, const Shown& name);

/// Silences std::cout and std::cerr for good. A process that closes its standard
/// descriptors must call it, since files and sockets will get their numbers. Text
/// that was not flushed before is lost.
void silence_console();

/// Leaves the last message readable for 2 s.
void pause_for_message();

/// Leaves the last message readable for 2 s and returns `status`.
int after_pause(int status);

/// Leaves the last message readable for 2 s, then ends the process with
/// `status`. Destructors of the frame do not run: an owned lock file stays.
[[noreturn]] void leave(int status);
