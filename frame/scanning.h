// frame/scanning.h: how a run that scans begins and ends, in the foreground or as a daemon.
#pragma once

/// Raises the limit of open descriptors so that deep folders can be walked, writes the
/// start line of the log, builds the scan list and opens the socket. If send_open() refuses,
/// returns false after a message and a pause of 2 s.
bool begin_scanning();

/// Closes the socket and writes the stop line of the log.
void end_scanning();
