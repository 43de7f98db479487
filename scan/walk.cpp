#include "scan/walk.h"

#include <cerrno>
#include <cstring>
#include <iostream>

#include "scan/counters.h"
#include "scan/file_ready.h"
#include "softlib/file_system.h"
#include "softlib/owners.h"
#include "softlib/path.h"
#include "softlib/pause.h"
#include "state/console.h"
#include "state/settings.h"

namespace {

constexpr std::uint32_t kAfterSentFileUs = 20'000;
constexpr std::uint32_t kBeforeEmptinessTestUs = 20'000;
constexpr std::int32_t kWalkEnded = -1;

/// What the file leaves in its folder: 0 or 1, or kWalkEnded.
std::int32_t visit_file(const std::string& folder, const std::string& name) {
  if (send_if_ready(folder, name) == 1) {
    pause_us(kAfterSentFileUs);
    return 0;
  }
  return stop_requested() ? kWalkEnded : 1;
}

/// What the sub-folder leaves in its folder; negative ends the walk.
std::int32_t visit_sub_folder(const std::string& folder, const std::string& name) {
  const std::int32_t left = scan_dir(folder, name);
  if (left != 0) return left;
  // the emptiness test comes after the pause: a writer may have returned
  pause_us(kBeforeEmptinessTestUs);
  return dir_is_empty(folder, name) && remove_dir(folder, name) == 1 ? 0 : 1;
}

/// A folder that can be opened, also through a link. Where the entry says that it
/// is a regular file there is no need to try.
bool is_sub_folder(const std::string& folder, const dirent& entry) {
  return entry.d_type != DT_REG && is_dir(folder, entry.d_name);
}

}  // namespace

std::int32_t scan_dir(const std::string& parent, const std::string& name) {
  const std::string folder = join_path(parent, name);
  const Dir stream(opendir(folder.c_str()));
  if (!stream) return kWalkEnded;
  std::int32_t count = 0;
  while (const dirent* entry = readdir(stream.get())) {
    if (is_dot_entry(entry->d_name)) continue;
    const std::int32_t left = is_sub_folder(folder, *entry)
                                  ? visit_sub_folder(folder, entry->d_name)
                                  : visit_file(folder, entry->d_name);
    if (left < 0) return left;
    count += left;
  }
  return count;
}

std::int32_t remove_dir(const std::string& parent, const std::string& name) {
  const std::string folder = join_path(parent, name);
  if (rmdir(folder.c_str()) == 0) {
    say(1) << "\nfolder " << folder << " was removed.";
    return 1;
  }
  const int err = errno;  // before any output changes it
  if (settings.verboze > 0) {
    std::cout << "\nERROR: folder " << folder << " was not removed!";
    std::cerr << "Error deleting dir: " << std::strerror(err) << "\n";
  }
  count_access_error(false);
  return 0;
}
