// check/options.h: the command line of the check: the sender's options and a few of its own.
#pragma once

#include <string>
#include <vector>

struct CheckOptions {
  bool files = false;
  bool json = false;
  bool help = false;
  bool version = false;
  std::string program;                 ///< as the sender would be called
  std::vector<std::string> arguments;  ///< the sender's arguments, without its name
};

/// Separates the check's own options from the sender's. Unless an option names the sender,
/// it is "tarnwick" in the folder of the check, as the check was called.
CheckOptions take_own_options(int argc, char** argv);

extern const char kHelp[];
