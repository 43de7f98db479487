// check/names.h: names that don't arrive as they are.
#pragma once

#include <cstddef>
#include <map>
#include <string>

#include "ground/findings.h"
#include "state/scan_folder.h"

/// The character set in force.
void check_charset(Findings& findings);

/// Looks at the names of all files, one by one.
class NameCheck {
 public:
  explicit NameCheck(Findings& findings) : findings_(findings) {}

  /// A file of `folder` by its path; `sub` is that of its folder below the scan folder.
  /// Returns the path at the receiver, as it goes out.
  std::string look(const scan_folder& folder, const std::string& path, const std::string& sub);

  /// Tells how many there were beyond those that were told one by one.
  void end();

 private:
  void tell(const std::string& text);

  Findings& findings_;
  std::map<std::string, std::string> senders_;  ///< path by receiver and path there
  std::size_t told_ = 0;
};
