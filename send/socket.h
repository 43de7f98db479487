// send/socket.h: the one UDP socket of a run, never bound, connected or read.
#pragma once

#include <netinet/in.h>

#include "state/scan_folder.h"

/// The descriptor between send_open() and send_close(); stale afterwards.
extern int sock;

/// Checks `udata_size`, opens `sock`, sets the size of its send buffer, and sets
/// `delay_target` from `speed`. Returns 0, or -1 if `udata_size` is out of range. Ends
/// the process with status 1 if there is no socket or the buffer can't be forced.
///
/// The buffer is forced to 16 MiB (SO_SNDBUFFORCE, which needs CAP_NET_ADMIN). With
/// `send_buffer` it gets that size, or as much of it as the system grants (SO_SNDBUF,
/// up to net.core.wmem_max, socket(7)).
int send_open();

/// True if `udata_size` is in its range.
bool udata_size_is_valid();

/// Size to which the send buffer is forced, bytes.
constexpr int kSendBuffer = 16 * 1024 * 1024;  // Linux reports twice as much

/// Closes `sock`.
void send_close();

/// Closes the descriptor `s`; nothing is reported.
void CloseSocket(int s);

/// Returns the errno of the last failed call.
int SockErrcode();

/// Returns the address of the receiver for `folder`. Ends the process with status 1
/// and a line on standard error if inet_aton(3) can't read `ip`.
sockaddr_in receiver_address(const scan_folder& folder);
