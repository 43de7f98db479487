#include "scan/walk.h"

#include <cerrno>
#include <cstring>
#include <iostream>
#include <utility>

#include "scan/counters.h"
#include "scan/file_ready.h"
#include "scan/tree.h"
#include "send/aside.h"
#include "softlib/path.h"
#include "softlib/pause.h"
#include "softlib/system_log.h"
#include "state/console.h"
#include "state/metrics.h"
#include "state/settings.h"

namespace {

/// Removes the emptied `folder`, which is `name` in `above`. A failure returns false and
/// counts as an access error, the 11th of which ends the process.
bool remove_dir(const Folder& above, Folder& folder, const std::string& name) {
  folder.close();
  if (unlinkat(above.fd(), name.c_str(), AT_REMOVEDIR) == 0) {
    say(1) << "\nfolder " << shown(folder.path()) << " was removed.";
    return true;
  }
  const int err = errno;  // before any output changes it
  // not an access error if somebody took the folder away or exchanged it
  if (!folder.is_link() && !folder.is_still(name)) return false;
  if (settings.verboze > 0) {
    std::cout << "\nERROR: folder " << shown(folder.path()) << " was not removed!";
    std::cerr << "Error deleting dir: " << std::strerror(err) << "\n";
  }
  count_access_error(false);
  return false;
}

/// Sends files, and removes the folders that become empty.
class Sending final : public TreeVisitor {
 public:
  std::string visit_aside(const Folder& folder, const std::string& name) override {
    return give_name_back(folder.fd(), name);
  }

  int visit_aside_folder(const Folder& above, const Folder& folder) override {
    return give_all_back(above.fd(), folder.fd());
  }

  std::int32_t visit_file(const Entry& entry) override {
    tell_metrics();
    if (send_if_ready(entry) == 1) {
      pause_us(kAfterSentFileUs);
      return 0;
    }
    return stop_requested() ? kWalkEnded : 1;
  }

  /// Warns only once in a run, since every pass finds the same links again.
  void visit_refused_link(const std::string& path) override {
    static bool warned = false;
    if (!std::exchange(warned, true)) warn_system("link " + path + " is not followed and stays");
  }

  bool visit_emptied(const Folder& above, Folder& folder, const std::string& name) override {
    // the emptiness test comes after the pause, since a writer may have come back
    pause_us(kBeforeEmptinessTestUs);
    return folder.is_empty() && remove_dir(above, folder, name);
  }
};

}  // namespace

std::int32_t scan_dir(const std::string& parent, const std::string& name) {
  Sending sending;
  return walk_tree(join_path(parent, name), sending);
}
