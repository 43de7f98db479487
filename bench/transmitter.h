// bench/transmitter.h: Tarnwick's own sending, and the plain loops beside it.
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <string>

#include "state/scan_folder.h"

/// A file as datagrams of `datagram` bytes.
struct Load {
  std::string file;
  std::uint32_t datagram = 0;
  std::uint64_t count = 0;  ///< data packets; the last may be shorter
  std::uint64_t bytes = 0;  ///< of the file
};

/// Writes the file `path` for `count` full datagrams.
Load make_load(const std::string& path, std::uint32_t datagram, std::uint64_t count);

/// What goes out behind a file.
struct Behind {
  bool seal = false;
  std::string repair{};  ///< percentage of repair parts, empty for none
};

/// Tarnwick in this process: one header packet, one pass, silent.
class Transmitter {
 public:
  /// Sends at `speed` Mbit/s to `port` of 127.0.0.1.
  Transmitter(std::uint32_t datagram, double speed, std::uint16_t port, const Behind& behind = {});
  ~Transmitter();
  Transmitter(const Transmitter&) = delete;
  Transmitter& operator=(const Transmitter&) = delete;

  /// Seconds for the whole file, less the prescribed pauses behind its header and its
  /// seal's.
  double send(const std::string& file);

 private:
  scan_folder folder_;
};

/// Seconds for the same file by one read() and one sendto() a datagram; with the
/// header of a data packet if `headers`, else with whatever is in its place.
double send_plainly(const Load& load, const sockaddr_in& to, bool headers);

/// Seconds for as many datagrams in segmented sends of the same memory, without
/// headers: what the kernel takes at the most. With `reading` that memory is
/// filled from the file by one read() before each.
double send_segmented(const Load& load, const sockaddr_in& to, bool reading);
