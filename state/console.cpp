#include "state/console.h"

#include <cstdlib>
#include <iostream>

#include "softlib/pause.h"
#include "state/settings.h"

std::ostream& say(int level) {
  static std::ostream silence(nullptr);
  return settings.verboze >= level ? std::cout : silence;
}

void silence_console() {
  std::cout.rdbuf(nullptr);
  std::cerr.rdbuf(nullptr);
}

void leave(int status) {
  pause_us(kMessagePauseUs);
  std::exit(status);
}
