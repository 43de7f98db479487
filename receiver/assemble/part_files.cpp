#include "receiver/assemble/part_files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "ground/owners.h"
#include "receiver/base/hex.h"
#include "receiver/base/own_files.h"

namespace {

bool is_out_of_descriptors(int error) { return error == EMFILE || error == ENFILE; }

}  // namespace

PartFiles::PartFiles(Fd folder) : folder_(std::move(folder)) { fill_reserve(); }

/// Uses duplicates, since the sandbox may forbid to open a path.
void PartFiles::fill_reserve() {
  while (reserve_.size() < kReserved) {
    Fd spare(fcntl(folder_.get(), F_DUPFD_CLOEXEC, 0));
    if (!spare) return;  // the next delivery tries again
    reserve_.push_back(std::move(spare));
  }
}

int PartFiles::open(const TransferKey& key) { return keep_open(key, true); }

int PartFiles::open_left(const TransferKey& key) { return keep_open(key, false); }

int PartFiles::keep_open(const TransferKey& key, bool make) {
  if (const auto found = places_.find(key); found != places_.end()) {
    open_.splice(open_.end(), open_, found->second);
    return found->second->second.get();
  }
  while (open_.size() >= kMostOpen) close(TransferKey(open_.front().first));
  Fd file = open_file(key, make ? O_CREAT : 0);
  while (!file && is_out_of_descriptors(errno) && !open_.empty()) {
    close(TransferKey(open_.front().first));
    file = open_file(key, make ? O_CREAT : 0);
  }
  if (!file) return -1;
  open_.emplace_back(key, std::move(file));
  places_[key] = std::prev(open_.end());
  return open_.back().second.get();
}

Fd PartFiles::open_file(const TransferKey& key, int flags) const {
  const std::string name = key_text(key);
  Fd file = open_own(folder_.get(), name, O_RDWR);
  // a failed delivery has already set the permissions of the finished file
  if (!file && errno == EACCES && fchmodat(folder_.get(), name.c_str(), 0600, 0) == 0)
    file = open_own(folder_.get(), name, O_RDWR);
  if (file || errno != ENOENT || flags == 0) return file;
  return Fd(openat(folder_.get(), name.c_str(), O_RDWR | O_EXCL | O_CLOEXEC | flags, 0600));
}

bool PartFiles::has(const TransferKey& key) const {
  return faccessat(folder_.get(), key_text(key).c_str(), F_OK, 0) == 0;
}

void PartFiles::close(const TransferKey& key) {
  const auto found = places_.find(key);
  if (found == places_.end()) return;
  open_.erase(found->second);
  places_.erase(found);
}

void PartFiles::drop(const TransferKey& key) {
  close(key);
  (void)unlinkat(folder_.get(), key_text(key).c_str(), 0);  // there may be no such file
}

std::vector<TransferKey> PartFiles::left() const {
  std::vector<TransferKey> keys;
  const int fd = openat(folder_.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const Dir dir(fd < 0 ? nullptr : fdopendir(fd));  // closes fd, too
  if (!dir) return keys;
  while (const dirent* entry = readdir(dir.get())) {
    if (const auto key = parse_key(entry->d_name)) keys.push_back(*key);
  }
  return keys;
}

bool PartFiles::adopt(const TransferKey& key) const {
  return renameat(folder_.get(), hex(key.id).c_str(), folder_.get(), key_text(key).c_str()) == 0;
}
