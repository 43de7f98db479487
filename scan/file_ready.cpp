#include "scan/file_ready.h"

#include <ostream>

#include "scan/counters.h"
#include "scan/readiness.h"
#include "send/removal.h"
#include "send/send_file.h"
#include "send/socket.h"
#include "send/source_file.h"
#include "softlib/log.h"
#include "state/console.h"
#include "state/metrics.h"
#include "state/run_log.h"
#include "state/scan_folder.h"
#include "state/settings.h"
#include "wire/wire_format.h"

namespace {

/// Returns false if the file is ready; else counts it as waiting and returns true.
bool waits(Readiness readiness) {
  switch (readiness) {
    case Readiness::kReady:
      return false;
    case Readiness::kMask:
      ++metrics.waiting[kMasked];
      return true;
    case Readiness::kExtension:
      ++metrics.waiting[kExtension];
      return true;
    case Readiness::kIgnored:
      ++metrics.waiting[kEmpty];
      return true;
    case Readiness::kOpen:
      ++metrics.waiting[kHeldOpen];
      return true;
    case Readiness::kYoung:
      ++metrics.waiting[kYoung];
      return true;
  }
  return true;
}

/// Returns false if the file could not be deleted although it should be. Writing to
/// the console may have taken long: a file that was opened meanwhile, or another one
/// in its place, stays, which is not a failure.
bool delete_sent(SourceFile& file) {
  if (settings.trash_active != 0) return true;  // moved already
  const Removal removal = take_away(file, [&file](Aside& aside) {
    file.close();  // a network file system keeps an open file under another name
    return aside.remove();
  });
  switch (removal) {
    case Removal::kDone:
      say(1) << "\nfile " << shown(file.path()) << " was removed.\n";
      return true;
    case Removal::kGone:
      say(1) << "\nFile " << shown(file.path()) << " was gone after it was sent.";
      return true;
    case Removal::kOpened:
      say(1) << "\nFile " << shown(file.path()) << " was opened after it was sent and stays.";
      return true;
    case Removal::kChanged:
      say(1) << "\nFile " << shown(file.path()) << " changed after it was sent and stays.";
      return true;
    case Removal::kFailed:
      break;
  }
  say(1) << "\nERROR: can't remove file " << shown(file.path()) << " !\n";
  return false;
}

void settle_sent(SourceFile& file) {
  ++files_count;
  ++gfiles_count;
  ++cur_folder->counts.files;
  cur_folder->counts.bytes += static_cast<std::uint64_t>(file.size());
  metrics.last_sent = std::time(nullptr);
  say(1) << "\nfile " << shown(file.path()) << " was send.\n";
  const bool deleted = delete_sent(file);
  log_stamped("Sent file " + file.path() + " (" + std::to_string(gfiles_count) + ")");
  if (deleted) return;
  ++metrics.failed[kNotRemoved];
  log_stamped("ERROR> can't remove file " + file.path());
  count_access_error(true);
}

[[noreturn]] void stop_on_socket_error() {
  send_close();
  log_plain("\nSOCKET ERROR \nStop Tarnwick Server  " + str_time(true) + "\n");
  leave(1);
}

}  // namespace

int send_if_ready(const Entry& entry) {
  const std::string& path = entry.path;
  if (waits(check_name(path))) return 0;
  SourceFile file(entry);
  if (waits(check_ready(file))) return 0;
  switch (SendFile(file, relative_sub_folder(path, cur_folder->abs_path), kKindFile)) {
    case kSent:
      settle_sent(file);
      return 1;
    case kSocketError:
      stop_on_socket_error();
    case kEscape:
      request_stop();
      return 0;
    default:
      say(1) << "\nfile " << shown(path) << " not send.";
      return 0;
  }
}

std::string relative_sub_folder(const std::string& path, const std::string& abs_path) {
  const std::size_t begin = abs_path.size() + 1;
  const std::size_t last_slash = path.rfind('/');
  if (last_slash == std::string::npos || last_slash <= begin) return "";
  return path.substr(begin, last_slash - begin);
}
