// check/names.h: finds names that change on their way to the receiver.
#pragma once

#include <cstddef>
#include <map>
#include <string>

#include "ground/findings.h"
#include "state/scan_folder.h"

/// Adds findings about the local character set.
void check_charset(Findings& findings);

/// Looks at the names of all files, one by one.
class NameCheck {
 public:
  explicit NameCheck(Findings& findings) : findings_(findings) {}

  /// Looks at the file `path` of the scan folder `folder`; `sub` is the path of the file's
  /// folder below that. Returns the path that the receiver gets.
  std::string look(const scan_folder& folder, const std::string& path, const std::string& sub);

  /// Adds a finding with the number of names that were not reported one by one.
  void end();

 private:
  void tell(const std::string& text);

  Findings& findings_;
  std::map<std::string, std::string> senders_;  ///< path by receiver and path there
  std::size_t told_ = 0;
};
