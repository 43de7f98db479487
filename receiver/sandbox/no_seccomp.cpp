// Takes the place of seccomp.cpp in a build without libseccomp.
#include "receiver/sandbox/sandbox.h"

std::string restrict_calls() {
  return "system calls are not restricted (built without libseccomp)";
}
