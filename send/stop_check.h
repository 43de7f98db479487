// send/stop_check.h: has another copy asked this run to stop?
#pragma once

/// True if `pplock` reports a stop request. Looks at most once in 100 ms; holds
/// the caller for as long as a freeze is in force. False without a look when `pplock` is null.
bool check2break();
