// softlib/privileges.h: gives up what is not needed any more.
#pragma once

/// Drops CAP_NET_ADMIN from every set that the process has, and lets nothing that it
/// might start gain privileges (prctl(2), PR_SET_NO_NEW_PRIVS): for good. Call it
/// once the last socket is open. Every other capability stays. What can't be given
/// up was not held, but for the bounding set: leaving that takes CAP_SETPCAP.
void drop_network_admin();
