// receiver/tell/metrics.h: counters for monitoring, as a Prometheus text file.
#pragma once

#include <cstdint>
#include <string>

#include "ground/owners.h"

/// All count from the start of the process. Times are seconds since 1970.
struct Metrics {
  std::uint64_t datagrams = 0;
  std::uint64_t bytes = 0;            ///< of datagrams, headers included
  std::uint64_t delivered = 0;        ///< files
  std::uint64_t incomplete = 0;       ///< files
  std::uint64_t refused = 0;          ///< files
  std::uint64_t name_collisions = 0;  ///< files delivered under a number for another's sake
  std::uint64_t malformed = 0;        ///< datagrams that no sender sends
  std::uint64_t not_allowed = 0;      ///< datagrams from elsewhere
  std::uint64_t contradicting = 0;    ///< datagrams at odds with their first header
  std::uint64_t repeated_parts = 0;   ///< parts that had come before
  std::uint64_t differing_parts = 0;  ///< of these: with other bytes
  std::uint64_t unwritten_parts = 0;  ///< came, but the disk did not take them
  std::uint64_t forgotten_parts = 0;  ///< came before any header, and none followed
  std::uint64_t kernel_drops = 0;     ///< each of one datagram, or of several joined ones
  std::uint64_t memory = 0;           ///< now: bytes of datagrams that wait to be settled
  std::uint64_t memory_dropped_datagrams = 0;  ///< the memory was full
  std::uint64_t memory_dropped_transfers = 0;  ///< of these datagrams
  std::uint64_t link_sent = 0;                 ///< datagrams by the senders' own counters
  std::uint64_t link_lost = 0;                 ///< of these: did not come
  std::uint64_t missing_parts = 0;             ///< now, of the files on their way
  std::uint64_t open_transfers = 0;            ///< now
  std::uint64_t waiting_files = 0;             ///< now: whole, but the disk did not take them
  std::uint64_t waiting_records = 0;           ///< now: for the ledger
  std::uint64_t repaired_parts = 0;            ///< rebuilt out of seals
  std::uint64_t repaired_files = 0;            ///< delivered with such parts
  std::uint64_t seals_proved = 0;              ///< their files' digests held
  std::uint64_t seals_differing = 0;           ///< they did not
  std::uint64_t seals_refused = 0;             ///< not believed
  std::uint64_t seals_unneeded = 0;            ///< of files that were delivered before
  double last_datagram = 0;
  double last_delivery = 0;
};

/// The text exposition format, version 0.0.4.
std::string metrics_text(const Metrics& metrics);

/// The file that the text is written to.
class MetricsFile {
 public:
  /// Opens the folder of `path`; "" means no file. Links in the folder's path are
  /// followed as open_folder() does.
  explicit MetricsFile(std::string path);

  /// Writes the text to "NAME.tmp" beside the file, made anew, and renames that into
  /// place. Returns "", or a text for the user: also where something else than a
  /// regular file has the place.
  std::string write(const Metrics& metrics);

  /// The open folder; -1 if there is none.
  int folder() const { return folder_.get(); }

 private:
  std::string path_;
  std::string error_;  ///< of opening the folder
  Fd folder_;
};
