// scan/tree.h: the way through a scan folder, depth first, and the visitor that acts on
// what is met there.
//
// Every folder is opened below its parent's descriptor, and its entries are named by
// its own: whoever exchanges a folder on the way with a link changes nothing.
#pragma once

#include <cstdint>
#include <string>

#include "scan/folder.h"
#include "softlib/entry.h"

/// What ends a walk, in place of a number of entries.
constexpr std::int32_t kWalkEnded = -1;

class TreeVisitor {
 public:
  TreeVisitor() = default;
  TreeVisitor(const TreeVisitor&) = delete;
  TreeVisitor& operator=(const TreeVisitor&) = delete;
  virtual ~TreeVisitor() = default;

  /// An entry with a name of send/aside.h. Returns the name that it has from now on.
  virtual std::string visit_aside(const Folder& folder, const std::string& name) = 0;

  /// The folder of send/aside.h for long names, before it is walked. Returns how many of
  /// its entries are entries of `above` from now on.
  virtual int visit_aside_folder(const Folder& above, const Folder& folder) = 0;

  /// A sub-folder, before it is walked.
  virtual void enter(const Folder& /*folder*/) {}

  /// What is no folder. Returns what it leaves: 0 or 1, or kWalkEnded.
  virtual std::int32_t visit_file(const Entry& entry) = 0;

  /// A link that may not be followed, or that leads back to a folder being walked.
  virtual void visit_refused_link(const std::string& path) = 0;

  /// The entry `name` of `above`: a sub-folder in which nothing was left. True if it is
  /// gone.
  virtual bool visit_emptied(const Folder& above, Folder& folder, const std::string& name) = 0;
};

/// Walks the folder `path`. Returns the number of entries left in it, or kWalkEnded if
/// it can't be opened or the visitor ended the walk. Links are followed by the rule of
/// softlib/links.h.
std::int32_t walk_tree(const std::string& path, TreeVisitor& visitor);
