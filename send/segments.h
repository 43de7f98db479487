// send/segments.h: sends many datagrams with one call (UDP generic segmentation
// offload, udp(7)), where kernel, route and card allow it.
#pragma once

#include <netinet/in.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <optional>

/// Most datagrams that one call can send (UDP_MAX_SEGMENTS of Linux 4.18).
constexpr std::size_t kMostSegments = 64;

/// True if send_segments() is worth a try: it was not refused in this run, and the
/// environment does not set TARNWICK_PLAIN_SENDS.
bool segments_are_usable();

/// Sends the `size` bytes (at most 65,507) at `bytes` on `sock` as datagrams of
/// `segment` bytes, the last one as long as what is left. Returns what sendmsg(2)
/// returns, errno included; or nothing if segments were refused. No datagram has then
/// gone out, and the caller sends them one by one.
std::optional<ssize_t> send_segments(const unsigned char* bytes, std::size_t size,
                                     std::uint16_t segment, const sockaddr_in& to);
