// The sender's command line; a NUL ends each argument.
#include "frame/command_line.h"

#include "fuzz/target.h"
#include "state/settings.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Settings defaults;
  settings = defaults;
  for (const std::string& argument : split(text_of(data, size), '\0')) {
    const std::string config = settings.config_name;
    const Word word = apply_argument(argument);
    check(word.text == argument && argument.compare(0, word.option.size(), word.option) == 0);
    check(settings.config_name == (word.option == "-o" ? word.value : config) ||
          word.heard != Heard::kSet);
  }
  check(settings.send_buffer >= 0);
  check(settings.seal || (settings.repair.empty() && settings.sign.empty()));
  return 0;
}
