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

/// std::cout when `verboze` is at least `level`; else a stream that swallows
/// the text.
std::ostream& say(int level);

/// A name or path for the console: where standard output is a terminal, with
/// escape_unprintable() of softlib/escape.h, since a name could clear the screen or
/// set its title; elsewhere as it is. Keeps a reference to `text`.
struct Shown {
  const std::string& text;
};
inline Shown shown(const std::string& text) { return {text}; }
std::ostream& operator<<(std::ostream& out, const Shown& name);

/// From here on neither stream writes anything: for a process that gives its
/// standard descriptors up, since files and sockets will get their numbers.
/// Text not flushed before is lost to this process.
void silence_console();

/// Leaves the last message readable for 2 s.
void pause_for_message();

/// Leaves the last message readable for 2 s and returns `status`.
int after_pause(int status);

/// Leaves the last message readable for 2 s, then ends the process with
/// `status`. Destructors of the frame do not run: an owned lock file stays.
[[noreturn]] void leave(int status);
