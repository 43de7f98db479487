// scan/tree.h: walks a scan folder depth first and calls a visitor for what it finds.
//
// Every folder is opened through its parent's descriptor, and every entry is reached
// through its folder's. Exchanging a folder on the way with a link therefore has no
// effect.
#pragma once

#include <cstdint>
#include <string>

#include "scan/folder.h"
#include "softlib/entry.h"

/// Returned in place of a number of entries; it ends the walk.
constexpr std::int32_t kWalkEnded = -1;

class TreeVisitor {
 public:
  TreeVisitor() = default;
  TreeVisitor(const TreeVisitor&) = delete;
  TreeVisitor& operator=(const TreeVisitor&) = delete;
  virtual ~TreeVisitor() = default;

  /// Visits an entry whose name satisfies is_aside() (send/aside.h). Returns the name that
  /// it has from now on.
  virtual std::string visit_aside(const Folder& folder, const std::string& name) = 0;

  /// Visits the folder that satisfies is_aside_folder() (send/aside.h), before it is walked.
  /// Returns how many of its entries are entries of `above` from now on.
  virtual int visit_aside_folder(const Folder& above, const Folder& folder) = 0;

  /// Visits a sub-folder before it is walked.
  virtual void enter(const Folder& /*folder*/) {}

  /// Visits an entry that is not a folder or can't be opened as one. Returns 1 if it is
  /// still there, 0 if it is gone, or kWalkEnded.
  virtual std::int32_t visit_file(const Entry& entry) = 0;

  /// Visits a link that may not be followed, or that leads back to a folder being walked.
  virtual void visit_refused_link(const std::string& path) = 0;

  /// Visits `folder`, the entry `name` of `above`, after a walk that left nothing in it.
  /// Returns true if it is gone.
  virtual bool visit_emptied(const Folder& above, Folder& folder, const std::string& name) = 0;
};

/// Walks the folder `path`. Returns the number of entries left in it, or kWalkEnded if
/// it can't be opened or the visitor ended the walk. Links are followed by the rule of
/// softlib/links.h.
std::int32_t walk_tree(const std::string& path, TreeVisitor& visitor);
