#include "scan/readiness.h"

#include <cstdint>
#include <ctime>
#include <ostream>

#include "softlib/path.h"
#include "state/console.h"
#include "state/settings.h"

namespace {

bool has_lock_mask(const std::string& file_name) {
  const std::string& mask = settings.blk_mask;
  if (mask.empty() || file_name.compare(0, mask.size(), mask) != 0) return false;
  say(2) << "file " << shown(file_name) << " have lock mask: " << mask << std::endl;
  return true;
}

bool has_lock_ext(const std::string& file_name) {
  const std::string ext = get_file_ext(file_name);
  if (settings.blk_ext.empty() || ext != settings.blk_ext) return false;
  say(2) << "file " << shown(file_name) << " have lock ext: " << ext << std::endl;
  return true;
}

/// Opens nothing, since many empty files may be waiting.
bool is_ignored_when_empty(const SourceFile& file) {
  if (settings.zero_ign == 0) return false;
  if (file.state() != SourceFile::State::kClosed) return true;  // not a regular file
  if (file.stamp().size != 0) return false;
  say(2) << "file " << shown(get_file_name(file.path())) << " have size = 0. Ignored." << std::endl;
  return true;
}

bool is_open_elsewhere(SourceFile& file) {
  const int found = file.check_open();
  say(2) << "file " << shown(file.path()) << " check lock..." << std::endl;
  if (found != 0) {
    say(1) << "file " << shown(file.path()) << " is already open in another PID." << std::endl;
    return true;
  }
  say(2) << "ok." << std::endl;
  return false;
}

bool is_too_young(const SourceFile& file) {
  if (settings.time_send_wait == 0) return false;
  const std::time_t modified = file.stamp().modified_s;
  const std::time_t now = std::time(nullptr);
  if (now < modified) return false;  // a file from the future is not young
  const auto age = static_cast<std::int64_t>(std::difftime(now, modified));
  if (age > settings.time_send_wait) return false;
  say(1) << "file " << shown(file.path()) << " have too short time." << std::endl;
  return true;
}

}  // namespace

Readiness check_name(const std::string& path) {
  const std::string file_name = get_file_name(path);
  if (has_lock_mask(file_name)) return Readiness::kMask;
  return has_lock_ext(file_name) ? Readiness::kExtension : Readiness::kReady;
}

Readiness check_ready(SourceFile& file) {
  if (is_ignored_when_empty(file)) return Readiness::kIgnored;
  file.open();
  if (is_open_elsewhere(file)) return Readiness::kOpen;
  return is_too_young(file) ? Readiness::kYoung : Readiness::kReady;
}
