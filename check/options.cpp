#include "check/options.h"

namespace {

constexpr char kProgram[] = "--program=";

std::string sender_beside(const std::string& path) {
  return path.substr(0, path.rfind('/') + 1) + "tarnwick";
}

}  // namespace

const char kHelp[] =
    "usage: tarnwick-check [--files] [--json] [--program=PATH] [options of tarnwick]\n"
    "\n"
    "Tells what tarnwick would do with these options: each setting and where it comes\n"
    "from, words without effect, and what will go wrong. Sends, deletes and changes\n"
    "nothing.\n"
    "\n"
    "  --files         tell of every file whether it would go now, and if not, why\n"
    "  --json          print JSON\n"
    "  --program=PATH  as tarnwick will be called: its name is that of its lock, and\n"
    "                  its folder is searched for tarnwick_cfg\n"
    "  --help          print this\n"
    "  --version       print the version\n"
    "\n"
    "Exit status: 0 nothing to say, 1 warnings, 2 it would not run.\n";

CheckOptions take_own_options(int argc, char** argv) {
  CheckOptions options;
  options.program = sender_beside(argc > 0 ? argv[0] : "");
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--files") {
      options.files = true;
    } else if (argument == "--json") {
      options.json = true;
    } else if (argument == "--help") {
      options.help = true;
    } else if (argument == "--version") {
      options.version = true;
    } else if (argument.rfind(kProgram, 0) == 0) {
      options.program = argument.substr(sizeof kProgram - 1);
    } else {
      options.arguments.push_back(argument);
    }
  }
  return options;
}
