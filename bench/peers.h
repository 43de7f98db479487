// bench/peers.h: other tools that put a file, or anything, onto UDP.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "bench/transmitter.h"

struct Peer {
  const char* program;
  const char* package;  ///< of Debian
  const char* far_end;
  /// Gbit/s of UDP payload on the way to 127.0.0.1; nothing if it refused.
  std::optional<double> (*run)(const std::string& path, const Load& load);
};

/// All that are known, installed or not.
const std::vector<Peer>& peers();
