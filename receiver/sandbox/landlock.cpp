#include <linux/landlock.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "ground/owners.h"
#include "receiver/sandbox/sandbox.h"

namespace {

// Rights that the system's header may be too old for; landlock(7) tells their versions.
constexpr std::uint64_t kTruncate = 1ULL << 14;     // version 3
constexpr std::uint64_t kDeviceIoctl = 1ULL << 15;  // version 5

// Version 1 forbids every move from one folder to another.
constexpr long kLeastVersion = 2;

constexpr std::uint64_t kNever = LANDLOCK_ACCESS_FS_EXECUTE | LANDLOCK_ACCESS_FS_MAKE_CHAR |
                                 LANDLOCK_ACCESS_FS_MAKE_BLOCK | LANDLOCK_ACCESS_FS_MAKE_SOCK |
                                 LANDLOCK_ACCESS_FS_MAKE_FIFO | LANDLOCK_ACCESS_FS_MAKE_SYM |
                                 LANDLOCK_ACCESS_FS_REMOVE_DIR;
constexpr std::uint64_t kBelowFolders = LANDLOCK_ACCESS_FS_WRITE_FILE |
                                        LANDLOCK_ACCESS_FS_MAKE_REG | LANDLOCK_ACCESS_FS_MAKE_DIR |
                                        LANDLOCK_ACCESS_FS_REMOVE_FILE | LANDLOCK_ACCESS_FS_REFER;

std::string missing(const char* what) {
  return std::string("files are not protected (landlock ") + what + ": " + std::strerror(errno) +
         ")";
}

}  // namespace

std::string restrict_files(const std::vector<int>& folders) {
  const long version =
      syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
  if (version < 0) return missing("version");
  if (version < kLeastVersion) return "files are not protected (landlock is too old)";
  const std::uint64_t below = kBelowFolders | (version >= 3 ? kTruncate : 0);
  landlock_ruleset_attr handled{};
  handled.handled_access_fs = below | kNever | (version >= 5 ? kDeviceIoctl : 0);
  const Fd rules(
      static_cast<int>(syscall(SYS_landlock_create_ruleset, &handled, sizeof handled, 0)));
  if (!rules) return missing("rules");
  for (const int folder : folders) {
    if (folder < 0) continue;
    landlock_path_beneath_attr rule{};
    rule.allowed_access = below;
    rule.parent_fd = folder;
    if (syscall(SYS_landlock_add_rule, rules.get(), LANDLOCK_RULE_PATH_BENEATH, &rule, 0) != 0) {
      return missing("rule");
    }
  }
  return syscall(SYS_landlock_restrict_self, rules.get(), 0) == 0 ? "" : missing("self");
}
