// receiver/tell/stamp.h: what a line to the operator begins with: its time, or where
// systemd's journal reads along, which adds the time itself, its level.
#pragma once

#include <string>

/// Seconds since 1970 by RFC 3339: "2026-11-23T09:00:00.250Z".
std::string rfc3339_utc(double real);

/// The same in local time, with its offset: "2026-11-23T12:00:00+03:00".
std::string rfc3339_local(double real);

/// True if `fd` is the stream that systemd's journal reads: `journal_stream` is the value of
/// JOURNAL_STREAM (systemd.exec(5)), "DEVICE:INODE", or null.
bool is_journal(int fd, const char* journal_stream);

/// What a line of the event `name` begins with for the journal: a level of sd-daemon(3).
const char* level_prefix(const std::string& name);
