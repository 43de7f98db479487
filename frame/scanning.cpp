#include "frame/scanning.h"

#include <sys/resource.h>

#include <iostream>
#include <string>

#include "scan/counters.h"
#include "scan/scan_list.h"
#include "send/socket.h"
#include "softlib/log.h"
#include "state/console.h"
#include "state/run_log.h"

namespace {

/// A walk holds a descriptor for every level of folders that it is in, and a path can
/// have more levels than the usual limit of 1,024 descriptors.
void allow_deep_walks() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  (void)setrlimit(RLIMIT_NOFILE, &limit);  // deeper folders then count as left
}

}  // namespace

bool begin_scanning() {
  allow_deep_walks();
  log_plain("Start Tarnwick Server " + str_time(true));
  make_scan_list();
  if (send_open() == 0) return true;
  std::cout << "Can't open socket!" << std::endl;
  pause_for_message();
  return false;
}

void end_scanning() {
  send_close();
  log_plain("\nsent " + std::to_string(files_count) + " files \nStop Tarnwick Server  " +
            str_time(true) + "\n");
}
