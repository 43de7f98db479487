// send/stop_check.h: tells whether another copy has asked this run to stop.
#pragma once

/// True if `pplock` reports a stop request. Looks at most once in 100 ms, and does not
/// return while a freeze is in force. Always false when `pplock` is null.
bool check2break();
