#include "state/settings.h"

Settings settings;

void use_charset(const std::string& name) {
  settings.lcs_a = name;
  settings.lcs = name;
}

bool stop_requested() { return settings.mode == kStop; }

void request_stop() { settings.mode = kStop; }
