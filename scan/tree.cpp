#include "scan/tree.h"

#include <climits>
#include <utility>

#include "send/aside.h"
#include "softlib/file_system.h"
#include "softlib/path.h"

namespace {

class Walk {
 public:
  explicit Walk(TreeVisitor& visitor) : visitor_(visitor) {}

  std::int32_t through(const Folder& folder) {
    std::int32_t count = 0;
    while (const dirent* entry = folder.next()) {
      if (is_dot_entry(entry->d_name)) continue;
      const std::int32_t left = visit(folder, *entry);
      if (left < 0) return left;
      count += left;
    }
    return count;
  }

 private:
  static bool may_be_folder(const dirent& entry) {
    return entry.d_type == DT_DIR || entry.d_type == DT_LNK || entry.d_type == DT_UNKNOWN;
  }

  /// Returns how many entries are left in `folder` of this one; negative ends the walk.
  std::int32_t visit(const Folder& folder, const dirent& found) {
    std::string name = found.d_name;
    if (is_aside(name)) name = visitor_.visit_aside(folder, name);
    std::string path = join_path(folder.path(), name);
    if (may_be_folder(found) && path.size() < PATH_MAX) {
      Opened opened = open_below(folder.fd(), name.c_str(), kFolderFlags);
      if (opened.refused) {
        visitor_.visit_refused_link(path);
        return 1;
      }
      Folder below(std::move(opened), path, &folder);
      if (below) return visit_sub_folder(folder, std::move(below), name);
    }
    return visitor_.visit_file({folder.fd(), std::move(name), std::move(path)});
  }

  /// Returns how many entries count as left in `above`; negative ends the walk.
  std::int32_t visit_sub_folder(const Folder& above, Folder folder, const std::string& name) {
    if (folder.is_link() && folder.is_below_itself()) {
      visitor_.visit_refused_link(folder.path());
      return 1;
    }
    visitor_.enter(folder);
    int back = 0;
    if (!folder.is_link() && is_aside_folder(name))
      back = visitor_.visit_aside_folder(above, folder);
    const std::int32_t left = through(folder);
    if (left < 0) return left;
    if (left > 0 || back > 0) return left + back;
    return visitor_.visit_emptied(above, folder, name) ? 0 : 1;
  }

  TreeVisitor& visitor_;
};

}  // namespace

std::int32_t walk_tree(const std::string& path, TreeVisitor& visitor) {
  Opened opened = open_path(path, kFolderFlags);
  if (opened.refused) visitor.visit_refused_link(path);
  const Folder folder(std::move(opened), path, nullptr);
  return folder ? Walk(visitor).through(folder) : kWalkEnded;
}
