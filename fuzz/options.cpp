// The receiver's command line; a NUL ends each argument.
#include "receiver/options.h"

#include <iostream>

#include "fuzz/target.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::cout.rdbuf(nullptr), std::cerr.rdbuf(nullptr);
  std::vector<std::string> arguments =
      split("tarnwick-receive" + ('\0' + text_of(data, size)), '\0');
  std::vector<char*> argv;
  argv.reserve(arguments.size() + 1);
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  Options options;
  const int status = parse_options(static_cast<int>(arguments.size()), argv.data(), options);
  check(status == -1 || status == kExitOk || status == kExitUsage);
  if (status != -1) return 0;
  check(!options.store.into.empty() || (options.report && !options.ledger.empty()));
  if (options.report || options.prune) return 0;
  check(options.at.size() == options.listen.size() && !options.at.empty());
  check((options.store.mode & ~mode_t{0777}) == 0);
  check(options.give_up > 0 && options.max_transfers > 0);
  check(stash_share(options) <= options.memory);
  return 0;
}
