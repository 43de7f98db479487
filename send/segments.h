// send/segments.h: many datagrams with one call (UDP generic segmentation
// offload, udp(7)), where kernel, route and card take it.
#pragma once

#include <netinet/in.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <optional>

/// Most datagrams (UDP_MAX_SEGMENTS of Linux 4.18) of one call.
constexpr std::size_t kMostSegments = 64;

/// Whether send_segments() is worth a try: false once it was refused in this run, or
/// if the environment sets TARNWICK_PLAIN_SENDS.
bool segments_are_usable();

/// Sends the `size` bytes (at most 65,507) at `bytes` on `sock` as datagrams of
/// `segment` bytes, the last one as long as what is left. Returns what sendmsg(2)
/// returns, errno included, or nothing if segments were refused: then no datagram has
/// gone out, and all of them are to be sent one by one.
std::optional<ssize_t> send_segments(const unsigned char* bytes, std::size_t size,
                                     std::uint16_t segment, const sockaddr_in& to);
