// receiver/base/now.h: one moment, by both clocks.
#pragma once

/// Pauses and silences are measured by `monotonic`, which nobody steps; `real` is
/// what is shown and saved.
struct Now {
  double monotonic = 0;  ///< CLOCK_MONOTONIC, s
  double real = 0;       ///< CLOCK_REALTIME, s since 1970

  static Now read();
};
