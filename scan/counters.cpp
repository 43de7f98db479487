#include "scan/counters.h"

#include <iostream>

#include "softlib/log.h"
#include "softlib/pause.h"
#include "state/console.h"
#include "state/settings.h"

std::int32_t files_count = 0;
std::int32_t gfiles_count = 0;
std::int32_t accs_err = 0;

namespace {

constexpr std::int32_t kToleratedAccessErrors = 10;
constexpr std::uint32_t kAfterFailedRemovalUs = 1'000'000;

}  // namespace

void count_access_error(bool log_stop) {
  pause_us(kAfterFailedRemovalUs);
  ++accs_err;
  if (accs_err <= kToleratedAccessErrors) return;
  std::cout << "\nERROR: access to objects. Stop.\n";
  if (log_stop) write_log(settings.logs_name, "ERROR: access to objects. Stop.", true);
  leave(1);
}
