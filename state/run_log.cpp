#include "state/run_log.h"

#include "softlib/log.h"
#include "state/settings.h"

namespace {

void log_entry(const std::string& text, bool stamp) {
  if (settings.logs != 0) write_log(settings.logs_name, text, stamp);
}

}  // namespace

void log_plain(const std::string& text) { log_entry(text, false); }

void log_stamped(const std::string& text) { log_entry(text, true); }
