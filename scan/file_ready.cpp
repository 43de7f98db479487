#include "scan/file_ready.h"

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <ostream>

#include "scan/counters.h"
#include "scan/open_files.h"
#include "send/send_file.h"
#include "send/socket.h"
#include "send/wire_format.h"
#include "softlib/file_system.h"
#include "softlib/log.h"
#include "softlib/path.h"
#include "state/console.h"
#include "state/scan_folder.h"
#include "state/settings.h"

namespace {

bool has_lock_mask(const std::string& file_name) {
  const std::string& mask = settings.blk_mask;
  if (mask.empty() || file_name.compare(0, mask.size(), mask) != 0) return false;
  say(2) << "file " << file_name << " have lock mask: " << mask << std::endl;
  return true;
}

bool has_lock_ext(const std::string& file_name) {
  const std::string ext = get_file_ext(file_name);
  if (settings.blk_ext.empty() || ext != settings.blk_ext) return false;
  say(2) << "file " << file_name << " have lock ext: " << ext << std::endl;
  return true;
}

bool is_ignored_when_empty(const std::string& path, const std::string& file_name) {
  if (settings.zero_ign == 0) return false;
  // the size first: one look is enough for each of the many files that wait empty
  if (get_file_size(path) != 0) return !file_is_regular(path);
  if (settings.verboze > 1 && file_is_regular(path)) {  // what is missing goes unmentioned
    say(2) << "file " << file_name << " have size = 0. Ignored." << std::endl;
  }
  return true;
}

bool is_open_elsewhere(const std::string& path) {
  const int found = check_open_file(path);
  say(2) << "file " << path << " check lock..." << std::endl;
  if (found != 0) {
    say(1) << "file " << path << " is already open in another PID." << std::endl;
    return true;
  }
  say(2) << "ok." << std::endl;
  return false;
}

bool is_too_young(const std::string& path) {
  if (settings.time_send_wait == 0) return false;
  const std::time_t modified = get_file_mtime(path);
  const std::time_t now = std::time(nullptr);
  if (now < modified) return false;  // a time in the future passes
  const auto age = static_cast<std::int64_t>(std::difftime(now, modified));
  if (age > settings.time_send_wait) return false;
  say(1) << "file " << path << " have too short time." << std::endl;
  return true;
}

bool is_ready(const std::string& path) {
  const std::string file_name = get_file_name(path);
  return !has_lock_mask(file_name) && !has_lock_ext(file_name) &&
         !is_ignored_when_empty(path, file_name) && !is_open_elsewhere(path) && !is_too_young(path);
}

/// An entry of the log with a time stamp, when there is a log.
void log_stamped(const std::string& text) {
  if (settings.logs != 0) write_log(settings.logs_name, text, true);
}

/// False if the file could not be deleted although it should be gone.
bool delete_sent(const std::string& path, const FileStamp& sent) {
  if (settings.trash_active != 0) return true;  // moved already
  // the console may have held us: what has come in its place meanwhile was not sent
  if (changed_since(sent, path)) {
    say(1) << "\nFile " << path << " changed after it was sent and stays.";
    return true;
  }
  if (std::remove(path.c_str()) != 0) {
    say(1) << "\nERROR: can't remove file " << path << " !\n";
    return false;
  }
  say(1) << "\nfile " << path << " was removed.\n";
  return true;
}

void settle_sent(const std::string& path, const FileStamp& sent) {
  ++files_count;
  ++gfiles_count;
  say(1) << "\nfile " << path << " was send.\n";
  const bool deleted = delete_sent(path, sent);
  log_stamped("Sent file " + path + " (" + std::to_string(gfiles_count) + ")");
  if (deleted) return;
  log_stamped("ERROR> can't remove file " + path);
  count_access_error(settings.logs != 0);
}

[[noreturn]] void stop_on_socket_error() {
  send_close();
  if (settings.logs != 0) {
    write_log(settings.logs_name, "\nSOCKET ERROR \nStop Tarnwick Server  " + str_time(true) + "\n",
              false);
  }
  leave(1);
}

}  // namespace

int send_if_ready(const std::string& parent, const std::string& name) {
  const std::string path = join_path(parent, name);
  if (!is_ready(path)) return 0;
  const FileStamp before = file_stamp(path).value_or(FileStamp{});
  switch (SendFile(path, relative_sub_folder(path, cur_folder->abs_path), kKindFile)) {
    case kSent:
      settle_sent(path, before);
      return 1;
    case kSocketError:
      stop_on_socket_error();
    case kEscape:
      request_stop();
      return 0;
    default:
      say(1) << "\nfile " << path << " not send.";
      return 0;
  }
}

std::string relative_sub_folder(const std::string& path, const std::string& abs_path) {
  const std::size_t begin = abs_path.size() + 1;
  const std::size_t last_slash = path.rfind('/');
  if (last_slash == std::string::npos || last_slash <= begin) return "";
  return path.substr(begin, last_slash - begin);
}
