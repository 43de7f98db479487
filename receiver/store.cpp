#include "receiver/store.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstring>
#include <memory>
#include <utility>

#include "receiver/folders.h"
#include "receiver/hex.h"
#include "receiver/moves.h"
#include "receiver/names.h"

namespace {

constexpr char kNoteSuffix[] = ".missing.txt";

struct DirCloser {
  void operator()(DIR* dir) const { closedir(dir); }
};

std::string join(const std::string& folder, const std::string& name) {
  return folder.empty() || folder.back() == '/' ? folder + name : folder + "/" + name;
}

Delivery failure(const std::string& path, const std::string& why) {
  Delivery failed;
  failed.error = path + ": " + why;
  return failed;
}

/// No name off the wire begins so.
std::string temporary_name(std::uint64_t id) { return std::string(kHiddenFolder) + "-" + hex(id); }

bool is_component(const std::string& name) {
  return !name.empty() && name != "." && name != ".." &&
         name.find_first_of(std::string("/\0", 2)) == std::string::npos;
}

}  // namespace

Store::Store(const StoreOptions& options) : options_(options) {
  const mode_t mask = umask(0);  // there is no way only to read it
  umask(mask);
  options_.mode &= ~mask;
  open_all();
}

bool Store::open_all() {
  const auto opened = [this](Fd& owner, Fd fd, const std::string& path) {
    if (!fd) error_ = "can't open the folder " + path + ": " + std::strerror(errno);
    owner = std::move(fd);
    return error_.empty();
  };
  const auto open_either = [&](Fd& owner, std::string& path, const char* name) {
    if (!path.empty()) return opened(owner, open_path(path), path);
    path = join(hidden_path(), name);
    return opened(owner, enter(hidden_.get(), name, 0700, options_.sync), path);
  };
  std::string parts;
  return opened(into_, open_path(options_.into), options_.into) &&
         opened(hidden_, enter(into_.get(), kHiddenFolder, 0700, options_.sync), hidden_path()) &&
         lock() && open_either(parts_, parts, "parts") &&
         open_either(journals_, options_.journals, "journals") &&
         open_either(incomplete_, options_.incomplete, "incomplete");
}

/// Some file systems have no locks; there the operator must see to it.
bool Store::lock() {
  if (flock(hidden_.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
    error_ = "another receiver uses the folder " + options_.into;
  }
  return error_.empty();
}

std::string Store::hidden_path() const { return join(options_.into, kHiddenFolder); }

Fd Store::open_part(std::uint64_t id) { return open_part_as(id, O_CREAT); }

Fd Store::open_part_as(std::uint64_t id, int flags) {
  const std::string name = hex(id);
  const auto open_it = [&] {
    return Fd(openat(parts_.get(), name.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC | flags, 0600));
  };
  Fd part = open_it();
  // a delivery that failed left the permissions of the finished file
  if (!part && errno == EACCES && fchmodat(parts_.get(), name.c_str(), 0600, 0) == 0)
    part = open_it();
  return part;
}

void Store::drop_part(std::uint64_t id) { unlinkat(parts_.get(), hex(id).c_str(), 0); }

std::vector<std::uint64_t> Store::parts_left() {
  std::vector<std::uint64_t> ids;
  const int fd = openat(parts_.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const std::unique_ptr<DIR, DirCloser> dir(fd < 0 ? nullptr : fdopendir(fd));  // closes fd, too
  if (!dir) return ids;
  while (const dirent* entry = readdir(dir.get())) {
    const std::string name = entry->d_name;
    std::uint64_t id = 0;
    std::from_chars(name.data(), name.data() + name.size(), id, 16);
    if (name == hex(id)) ids.push_back(id);
  }
  return ids;
}

bool Store::has_room(std::uint64_t bytes) const {
  struct statvfs disk {};
  if (fstatvfs(into_.get(), &disk) != 0) return false;
  const std::uint64_t free = std::uint64_t{disk.f_bavail} * disk.f_frsize;
  return free >= options_.reserve && free - options_.reserve >= bytes;
}

/// `path` ends at the folder, or at the one that could not be opened.
Fd Store::open_folders(const std::vector<std::string>& folders, std::string& path) const {
  std::string below = ".";
  for (const std::string& folder : folders) below += "/" + folder;
  Fd folder = open_beneath(into_.get(), below);
  if (folder) {
    path = folders.empty() ? path : join(path, below.substr(2));
    return folder;
  }
  folder = enter(into_.get(), ".", 0, false);
  for (auto next = folders.begin(); folder && next != folders.end(); ++next) {
    path = join(path, *next);
    folder = enter(folder.get(), next->c_str(), 0777, options_.sync);
  }
  return folder;
}

bool Store::finish(int fd) const {
  return fchmod(fd, options_.mode) == 0 && (!options_.sync || fsync(fd) == 0);
}

Delivery Store::deliver(std::uint64_t id, int fd, const std::vector<std::string>& folders,
                        const std::string& name) {
  std::string path = options_.into;
  std::size_t length = path.size() + name.size() + 2;
  for (const std::string& folder : folders) length += folder.size() + 1;
  if (length > PATH_MAX) return failure(name, "its path is longer than 4095 bytes");
  if (!std::all_of(folders.begin(), folders.end(), is_component))
    return failure(name, "a folder is not fit for a name");
  const Fd folder = open_folders(folders, path);
  if (!folder) return failure("can't open the folder " + path, std::strerror(errno));
  return place(id, fd, folder.get(), path, name, options_.keep_existing);
}

Delivery Store::deliver_journal(std::uint64_t id, int fd, std::int64_t send_time,
                                const std::string& name) {
  const std::string full = std::to_string(send_time) + "-" + hex(id) + "-" + name;
  return place(id, fd, journals_.get(), options_.journals, fit_name(full), false);
}

Delivery Store::keep_incomplete(std::uint64_t id, const std::string& name,
                                const std::string& note) {
  const std::string kept = fit_name(hex(id) + "-" + name, NAME_MAX - std::strlen(kNoteSuffix));
  const std::string& path = options_.incomplete;
  const Fd part = open_part_as(id, 0);
  if (!part) return failure("can't open the part of " + name, std::strerror(errno));
  if (!is_component(kept)) return failure(kept, "not fit for a name");
  // the note first: what is incomplete never lies there without one
  if (!write_note(id, kept + kNoteSuffix, note))
    return failure("can't write " + join(path, kept + kNoteSuffix), std::strerror(errno));
  Delivery delivery = place(id, part.get(), incomplete_.get(), path, kept, false);
  if (!delivery.done) unlinkat(incomplete_.get(), (kept + kNoteSuffix).c_str(), 0);
  return delivery;
}

bool Store::write_note(std::uint64_t id, const std::string& name, const std::string& note) {
  const int folder = incomplete_.get();
  const Temporary temporary(folder, temporary_name(id));
  return temporary.fd() >= 0 && write_all(temporary.fd(), note) && finish(temporary.fd()) &&
         renameat(folder, temporary.name(), folder, name.c_str()) == 0;
}

/// Finishes the growing file and moves it into the open `folder` at `path`.
Delivery Store::place(std::uint64_t id, int fd, int folder, const std::string& path,
                      const std::string& name, bool numbered) {
  if (!is_component(name)) return failure(name, "not fit for a name");
  std::string placed = name;
  if (!move_here(id, fd, folder, placed, numbered))
    return failure("can't write " + join(path, name), std::strerror(errno));
  Delivery delivery;
  delivery.path = join(path, placed);
  if (options_.sync && !sync_folder(folder))
    return failure("can't sync the folder of " + delivery.path, std::strerror(errno));
  drop_part(id);  // there still is one beside a copy
  delivery.done = true;
  return delivery;
}

bool Store::move_here(std::uint64_t id, int fd, int folder, std::string& name, bool numbered) {
  struct stat from {};  // the folder: an overlay's files may show another device
  struct stat to {};
  if (fstat(parts_.get(), &from) != 0 || fstat(folder, &to) != 0) return false;
  if (from.st_dev != to.st_dev) return copy_here(id, fd, folder, name, numbered);
  if (!finish(fd)) return false;
  return rename_to(parts_.get(), hex(id).c_str(), folder, name, numbered) ||
         (errno == EXDEV && copy_here(id, fd, folder, name, numbered));  // mounted twice
}

bool Store::copy_here(std::uint64_t id, int fd, int folder, std::string& name, bool numbered) {
  const Temporary copy(folder, temporary_name(id));
  return copy.fd() >= 0 && copy_contents(fd, copy.fd()) && finish(copy.fd()) &&
         rename_to(folder, copy.name(), folder, name, numbered);
}
