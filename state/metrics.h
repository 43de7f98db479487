// state/metrics.h: what the run has done so far, for the file of --metrics.
//
//   ++metrics.failed[kChanged];   // wherever it happens
//   begin_metrics();              // once, by the process that goes on
//   tell_metrics();               // wherever the run has time
//
// Without --metrics the counts are kept and no file is written.
#pragma once

#include <array>
#include <cstdint>
#include <string>

/// Why the walk left a file.
enum Waiting : std::uint8_t { kMasked, kExtension, kEmpty, kHeldOpen, kYoung, kWaitings };

/// Why a file that was ready was not sent, or was sent and is still there.
enum Failure : std::uint8_t {
  kUnreadable,     ///< it is missing, not a regular file, or can't be read
  kChanged,        ///< it changed while it was sent
  kOpenedByOther,  ///< another process opened it while it was sent
  kInterrupted,    ///< a request or the escape key stopped the transfer
  kSocketRefused,  ///< a send failed, which ends the run
  kNotRemoved,     ///< it went out, but could not be deleted
  kFailures
};

using WaitingCounts = std::array<std::uint64_t, kWaitings>;

/// Counts for one folder, from the start of the process.
struct FolderCounts {
  std::uint64_t files = 0;      ///< files sent
  std::uint64_t bytes = 0;      ///< bytes of these files
  std::uint64_t datagrams = 0;  ///< datagrams sent
  WaitingCounts waiting{};      ///< files that the last walk left
};

/// Counts from the start of the process.
struct Metrics {
  std::array<std::uint64_t, kFailures> failed{};
  std::uint64_t cycles = 0;         ///< scan cycles that ended
  std::uint64_t access_errors = 0;  ///< removals that failed
  std::int64_t last_sent = 0;       ///< when the last file was sent, s since 1970; 0: never

  WaitingCounts waiting{};  ///< files that the walk under way has left so far

  std::string file;              ///< path of the file being sent; empty: none
  std::uint64_t parts = 0;       ///< its parts over all passes, with the seal's once that began
  std::uint64_t parts_sent = 0;  ///< how many of these parts were sent
};

extern Metrics metrics;

/// While it lives, the metrics name the file being sent.
class PresentFile {
 public:
  /// `parts` is the number of the file's parts over all passes.
  PresentFile(const std::string& path, std::uint64_t parts);
  ~PresentFile();
  PresentFile(const PresentFile&) = delete;
  PresentFile& operator=(const PresentFile&) = delete;
};

/// Returns all counts in the Prometheus text format, version 0.0.4.
std::string metrics_text();

/// Writes the file for the first time, and has it written once more by exit(3).
void begin_metrics();

/// True if the file was last written five seconds ago or more.
bool metrics_are_due();

/// Writes the file if it is due. The first failure is a warning in the system's log; later
/// ones are silent until the file could be written again.
void tell_metrics();
