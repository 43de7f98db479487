#include "softlib/keyboard.h"

#include <sys/select.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>

#include "ground/signals_held.h"

namespace {

int getch_c = 0;

/// True if standard input is our terminal but another job is in the foreground: we
/// would then be stopped for touching it (SIGTTIN, SIGTTOU). tcgetpgrp() fails where
/// standard input is not a terminal, or not our controlling one.
bool in_background() {
  const pid_t foreground = tcgetpgrp(STDIN_FILENO);
  return foreground >= 0 && foreground != getpgrp();
}

/// Sets the terminal to "character by character, no echo" while it lives. Does nothing
/// where standard input is not a terminal.
class CharByChar {
 public:
  CharByChar() : is_terminal_(tcgetattr(STDIN_FILENO, &kept_) == 0) {
    if (!is_terminal_) return;
    termios raw = kept_;
    raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    tcsetattr(STDIN_FILENO, TCSANOW, &raw);
  }
  ~CharByChar() {
    if (is_terminal_) tcsetattr(STDIN_FILENO, TCSANOW, &kept_);
  }
  CharByChar(const CharByChar&) = delete;
  CharByChar& operator=(const CharByChar&) = delete;

 private:
  termios kept_{};
  bool is_terminal_;
};

bool input_is_waiting() {
  fd_set readable;
  FD_ZERO(&readable);
  FD_SET(STDIN_FILENO, &readable);
  timeval at_once{0, 0};
  return select(STDIN_FILENO + 1, &readable, nullptr, nullptr, &at_once) > 0;
}

}  // namespace

bool kbhit() {
  // a character in a buffer of ours would be hidden from select()
  static const int unbuffered = std::setvbuf(stdin, nullptr, _IONBF, 0);
  (void)unbuffered;
  const SignalsHeld
      signals;  // a signal that ends or stops us here would leave the terminal without echo
  if (in_background()) return false;
  const CharByChar mode;
  if (!input_is_waiting()) return false;
  const int c = std::getchar();
  getch_c = c == EOF ? kEscapeKey : c;
  return true;
}

int getch() { return getch_c; }

bool escape_was_pressed() { return kbhit() && getch() == kEscapeKey; }
