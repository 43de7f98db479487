// send/socket.h: the one UDP socket of a run, never bound, connected or read.
#pragma once

#include <netinet/in.h>

#include "state/scan_folder.h"

/// The descriptor between send_open() and send_close(); stale afterwards.
extern int sock;

/// Checks `udata_size`, opens `sock`, sees to its send buffer and sets
/// `delay_target` from `speed`. 0 when ready, -1 when refused. Ends the process
/// with status 1 if there is no socket or the buffer can't be forced.
///
/// The buffer is forced to 16 MiB (SO_SNDBUFFORCE, needs CAP_NET_ADMIN), or, with
/// `send_buffer`, is what the system grants of that (SO_SNDBUF, up to
/// net.core.wmem_max, socket(7)).
int send_open();

/// True if datagrams of `udata_size` bytes can be sent.
bool udata_size_is_valid();

/// Bytes to which the send buffer is forced.
constexpr int kSendBuffer = 16 * 1024 * 1024;  // Linux reports twice as much

/// Closes `sock`.
void send_close();

/// Closes the descriptor `s`; nothing is reported.
void CloseSocket(int s);

/// errno of the last failed call.
int SockErrcode();

/// Where the files of `folder` go. Ends the process with status 1 and a line on
/// standard error if its `ip` is no address that inet_aton(3) reads.
sockaddr_in receiver_address(const scan_folder& folder);
