#include "scan/counters.h"

#include <iostream>

#include "softlib/pause.h"
#include "softlib/system_log.h"
#include "state/console.h"
#include "state/metrics.h"
#include "state/run_log.h"

std::int32_t files_count = 0;
std::int32_t gfiles_count = 0;
std::int32_t accs_err = 0;

namespace {

constexpr std::uint32_t kAfterFailedRemovalUs = 1'000'000;

}  // namespace

void count_access_error(bool log_stop) {
  pause_us(kAfterFailedRemovalUs);
  ++accs_err;
  ++metrics.access_errors;
  if (accs_err <= kToleratedAccessErrors) return;
  err_system("too many files and folders that could not be removed");
  std::cout << "\nERROR: access to objects. Stop.\n";
  if (log_stop) log_stamped("ERROR: access to objects. Stop.");
  leave(1);
}
