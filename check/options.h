// check/options.h: the command line of the check: the sender's, and a few words of its own.
#pragma once

#include <string>
#include <vector>

struct CheckOptions {
  bool files = false;
  bool json = false;
  bool help = false;
  bool version = false;
  std::string program;                 ///< as the sender would be called
  std::vector<std::string> arguments;  ///< its own, without its name
};

/// Takes the words of the check out of the command line. Unless one names the sender, it is
/// "tarnwick" in the folder of the check, as that was called.
CheckOptions take_own_options(int argc, char** argv);

extern const char kHelp[];
