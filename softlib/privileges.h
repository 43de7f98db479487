// softlib/privileges.h: gives up what is not needed any more.
#pragma once

/// Drops CAP_NET_ADMIN for good from every capability set of the process, and keeps
/// whatever it might start from gaining privileges (prctl(2), PR_SET_NO_NEW_PRIVS).
/// Call it once the last socket is open. All other capabilities stay. Failures are
/// ignored: the process then did not hold the capability, or lacks CAP_SETPCAP, which
/// the bounding set needs.
void drop_network_admin();
