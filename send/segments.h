// send/segments.h: many datagrams with one call (UDP generic segmentation
// offload, udp(7)), where kernel, route and card take it.
#pragma once

#include <netinet/in.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>

/// Most datagrams (UDP_MAX_SEGMENTS of Linux 4.18) of one call.
constexpr std::size_t kMostSegments = 64;

/// False once send_segments() was refused in this run, or if the environment
/// sets TARNWICK_PLAIN_SENDS.
bool segments_are_usable();

/// Sends the `size` bytes (at most 65,507) at `bytes` on `sock` as datagrams of
/// `segment` bytes, the last one as long as what is left. Gives what sendmsg(2)
/// gives. A refusal, which leaves segments_are_usable() false, sent nothing:
/// the same datagrams are to be sent one by one.
ssize_t send_segments(const unsigned char* bytes, std::size_t size, std::uint16_t segment,
                      const sockaddr_in& to);
