// receiver/metrics.h: counters for monitoring, as a Prometheus text file.
#pragma once

#include <cstdint>
#include <string>

/// All count from the start of the process. Times are seconds since 1970.
struct Metrics {
  std::uint64_t datagrams = 0;
  std::uint64_t bytes = 0;            ///< of datagrams, headers included
  std::uint64_t delivered = 0;        ///< files
  std::uint64_t incomplete = 0;       ///< files
  std::uint64_t refused = 0;          ///< files
  std::uint64_t malformed = 0;        ///< datagrams that no sender sends
  std::uint64_t not_allowed = 0;      ///< datagrams from elsewhere
  std::uint64_t contradicting = 0;    ///< datagrams at odds with their first header
  std::uint64_t repeated_parts = 0;   ///< parts that had come before
  std::uint64_t differing_parts = 0;  ///< of these: with other bytes
  std::uint64_t forgotten_parts = 0;  ///< came before any header, and none followed
  std::uint64_t kernel_drops = 0;     ///< each of one datagram, or of several joined ones
  std::uint64_t link_sent = 0;        ///< datagrams by the senders' own counters
  std::uint64_t link_lost = 0;        ///< of these: did not come
  std::uint64_t missing_parts = 0;    ///< now, of the files on their way
  std::uint64_t open_transfers = 0;   ///< now
  double last_datagram = 0;
  double last_delivery = 0;
};

/// The text exposition format, version 0.0.4.
std::string metrics_text(const Metrics& metrics);

/// Writes it to `path` by way of a temporary file beside it. False on failure,
/// errno set.
bool write_metrics(const Metrics& metrics, const std::string& path);
