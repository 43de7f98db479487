#include "receiver/deliver/pruning.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "ground/owners.h"
#include "receiver/base/transfer_key.h"

namespace {

constexpr double kInterval = 3600;    // s
constexpr std::uint64_t kRows = 200;  // of the ledger at once: nothing waits for long

/// "KEY-NAME" or, of a journal, "TIME-KEY-NAME".
bool is_kept_name(const std::string& name) {
  static const std::size_t key_size = key_text({}).size();
  const std::size_t digits = name.find_first_not_of("0123456789");
  for (const std::size_t at : {std::size_t{0}, digits == std::string::npos ? 0 : digits + 1}) {
    if (name.size() > at + key_size && name[at + key_size] == '-' &&
        parse_key(name.substr(at, key_size))) {
      return at == 0 || name[digits] == '-';
    }
  }
  return false;
}

bool is_old_file(int folder, const std::string& name, double before) {
  struct stat info {};
  return fstatat(folder, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(info.st_mode) &&
         info.st_uid == geteuid() && static_cast<double>(info.st_mtime) < before;
}

}  // namespace

std::size_t prune_kept(int folder, double before) {
  const int fd = openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const Dir dir(fd < 0 ? nullptr : fdopendir(fd));  // closes fd, too
  if (!dir) return 0;
  std::vector<std::string> old;  // first all: deleting may move what is yet to be read
  while (const dirent* entry = readdir(dir.get())) {
    const std::string name = entry->d_name;
    if (is_kept_name(name) && is_old_file(folder, name, before)) old.push_back(name);
  }
  std::size_t gone = 0;
  for (const std::string& name : old) gone += unlinkat(folder, name.c_str(), 0) == 0 ? 1 : 0;
  return gone;
}

void Pruning::tick(const Now& now) {
  if (age_ <= 0 || now.monotonic < next_) return;
  const double before = now.real - age_;
  const auto rows = ledger_.prune(before, kRows);
  if (rows.value_or(0) > 0) return;  // there may be more
  for (const int folder : {journals_, incomplete_}) (void)prune_kept(folder, before);
  next_ = now.monotonic + kInterval;
}
