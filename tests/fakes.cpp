#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "softlib/pause.h"
#include "softlib/system_log.h"
#include "tests/support.h"

Pauses pauses;
std::function<void(std::uint32_t)> on_pause;
std::string system_log;
uid_t other_uid = 0;
std::time_t time_passed, clock_stepped;
std::function<int(unsigned)> on_rename = [](unsigned) { return 0; };

void pause_us(std::uint32_t us) {
  pauses.push_back(us);
  on_pause(us);
}

void name_in_system_log(const std::string&) {}

void warn_system(const std::string& text) { system_log += "warning: " + text + "\n"; }

void err_system(const std::string& text) { system_log += "error: " + text + "\n"; }

uid_t geteuid() noexcept {
  return other_uid != 0 ? other_uid : static_cast<uid_t>(syscall(SYS_geteuid));
}

int clock_gettime(clockid_t clock, timespec* now) noexcept {
  static timespec stands_at{};
  const long result = syscall(SYS_clock_gettime, clock, now);
  if (stands_at.tv_sec == 0 && clock == CLOCK_MONOTONIC) stands_at = *now;
  if (clock == CLOCK_MONOTONIC) *now = stands_at;
  now->tv_sec += time_passed + (clock == CLOCK_REALTIME ? clock_stepped : 0);
  return static_cast<int>(result);
}

int renameat2(int from, const char* name, int to, const char* new_name, unsigned flags) noexcept {
  if (const int error = on_rename(flags); error != 0) return errno = error, -1;
  return static_cast<int>(syscall(SYS_renameat2, from, name, to, new_name, flags));
}
