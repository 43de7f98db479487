// A configuration file. What only the command line may say it does not change.
#include <sstream>

#include "frame/config_file.h"
#include "fuzz/target.h"
#include "state/settings.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Settings defaults;
  settings = defaults;
  std::istringstream in(text_of(data, size));
  apply_config(in, "cfg");
  check(in.eof());
  check(settings.config_name == defaults.config_name);
  check(settings.time_rescan == defaults.time_rescan);
  check(settings.send_buffer >= 0);
  check(settings.seal || (settings.repair.empty() && settings.sign.empty()));
  return 0;
}
