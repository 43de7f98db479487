#include "receiver/sandbox/sandbox.h"

#include <sys/prctl.h>

#include <cerrno>
#include <cstring>

std::string enter_sandbox(const std::vector<int>& folders) {
  // either part wants this from a process without privileges
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
    return std::string("running without a sandbox: ") + std::strerror(errno);
  }
  const std::string files = restrict_files(folders);
  const std::string calls = restrict_calls();
  if (files.empty() && calls.empty()) return "";
  const std::string both = files.empty() || calls.empty() ? "" : "; ";
  return "running with less of a sandbox: " + files + both + calls;
}
