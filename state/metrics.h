// state/metrics.h: what the run has done so far, for the file of --metrics.
//
//   ++metrics.failed[kChanged];   // wherever it happens
//   begin_metrics();              // once, by the process that goes on
//   tell_metrics();               // wherever the run has time
//
// Without --metrics things are counted and nothing else happens.
#pragma once

#include <array>
#include <cstdint>
#include <string>

/// Why a file was left by the walk.
enum Waiting : std::uint8_t { kMasked, kExtension, kEmpty, kHeldOpen, kYoung, kWaitings };

/// Why a file that was ready did not go, or not for good.
enum Failure : std::uint8_t {
  kUnreadable,     ///< missing, no regular file, or it can't be read
  kChanged,        ///< while it was sent
  kOpenedByOther,  ///< while it was sent
  kInterrupted,    ///< by a request or the escape key
  kSocketRefused,  ///< the run ends
  kNotRemoved,     ///< went out, but could not be deleted
  kFailures
};

using WaitingCounts = std::array<std::uint64_t, kWaitings>;

/// Of one folder, from the start of the process.
struct FolderCounts {
  std::uint64_t files = 0;      ///< sent
  std::uint64_t bytes = 0;      ///< of these files
  std::uint64_t datagrams = 0;  ///< sent
  WaitingCounts waiting{};      ///< files that the last walk left
};

/// Counts from the start of the process.
struct Metrics {
  std::array<std::uint64_t, kFailures> failed{};
  std::uint64_t cycles = 0;         ///< that ended
  std::uint64_t access_errors = 0;  ///< removals that failed
  std::int64_t last_sent = 0;       ///< seconds since 1970; 0: never

  WaitingCounts waiting{};  ///< by the walk under way

  std::string file;              ///< the one being sent; empty: none
  std::uint64_t parts = 0;       ///< of it, over all passes, and of its seal once that began
  std::uint64_t parts_sent = 0;  ///< of these
};

extern Metrics metrics;

/// Names the file being sent for as long as it lives.
class PresentFile {
 public:
  /// `parts`: of the file, over all passes.
  PresentFile(const std::string& path, std::uint64_t parts);
  ~PresentFile();
  PresentFile(const PresentFile&) = delete;
  PresentFile& operator=(const PresentFile&) = delete;
};

/// All counts in the Prometheus text format, version 0.0.4.
std::string metrics_text();

/// Writes the file for the first time, and has it written for the last time when the
/// process ends by itself.
void begin_metrics();

/// True if the file is to be written now: five seconds after the last time.
bool metrics_are_due();

/// Writes the file if it is due. What keeps it from being written is told to the system's
/// log, once until it works again.
void tell_metrics();
