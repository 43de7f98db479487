#include "state/console.h"

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <iostream>

#include "softlib/escape.h"
#include "softlib/pause.h"
#include "state/settings.h"

std::ostream& say(int level) {
  static std::ostream silence(nullptr);
  return settings.verboze >= level ? std::cout : silence;
}

std::ostream& operator<<(std::ostream& out, const Shown& name) {
  static const bool is_terminal = isatty(STDOUT_FILENO) != 0;
  return out << (is_terminal ? escape_unprintable(name.text) : name.text);
}

void silence_console() {
  std::cout.rdbuf(nullptr);
  std::cerr.rdbuf(nullptr);
}

void pause_for_message() {
  constexpr std::uint32_t kMessagePauseUs = 2'000'000;
  pause_us(kMessagePauseUs);
}

int after_pause(int status) {
  pause_for_message();
  return status;
}

void leave(int status) { std::exit(after_pause(status)); }
