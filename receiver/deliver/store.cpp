#include "receiver/deliver/store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <utility>

#include "ground/write_all.h"
#include "receiver/base/names.h"
#include "receiver/base/own_files.h"
#include "receiver/deliver/folders.h"
#include "receiver/deliver/moves.h"

namespace {

constexpr char kNoteSuffix[] = ".missing.txt";
constexpr int kMostNumbers = 1000;  // of a folder

std::string join(const std::string& folder, const std::string& name) {
  return folder.empty() || folder.back() == '/' ? folder + name : folder + "/" + name;
}

Delivery failure(const std::string& path, const std::string& why) {
  Delivery failed;
  failed.error = path + ": " + why;
  return failed;
}

Delivery hopeless(const std::string& path, const std::string& why) {
  Delivery failed = failure(path, why);
  failed.hopeless = true;
  return failed;
}

/// No name off the wire begins so.
std::string temporary_name(const TransferKey& key) {
  return std::string(kHiddenFolder) + "-" + key_text(key);
}

bool is_folder(int folder, const std::string& name) {
  struct stat info {};
  return fstatat(folder, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(info.st_mode);
}

bool adorn(int fd, const Attributes& attributes) {
  const timespec times[] = {{0, UTIME_OMIT}, attributes.mtime.value_or(timespec{})};
  return fchmod(fd, attributes.mode) == 0 && (!attributes.mtime || futimens(fd, times) == 0);
}

bool is_component(const std::string& name) {
  return !name.empty() && name != "." && name != ".." &&
         name.find_first_of(std::string("/\0", 2)) == std::string::npos;
}

}  // namespace

Store::Store(const StoreOptions& options) : options_(options) {
  mask_ = umask(0);  // there is no way only to read it
  umask(mask_);
  options_.mode &= ~mask_;
  open_all();
}

bool Store::open_all() {
  const auto failed = [this](const std::string& path, const std::string& why) {
    error_ = "can't use the folder " + path + ": " + why;
    return false;
  };
  const auto open_given = [&](Fd& owner, const std::string& path) {
    std::string why;
    owner = open_folder(path, true, why);
    return owner ? true : failed(path, why);
  };
  const auto open_below = [&](Fd& owner, const Fd& folder, const char* name,
                              const std::string& path) {
    owner = enter(folder.get(), name, 0700, options_.sync);
    return owner ? true : failed(path, std::strerror(errno));
  };
  const auto open_either = [&](Fd& owner, std::string& path, const char* name) {
    if (!path.empty()) return open_given(owner, path);
    path = join(hidden_path(), name);
    return open_below(owner, hidden_, name, path);
  };
  if (!open_given(into_, options_.into)) return false;
  if (!open_below(hidden_, into_, kHiddenFolder, hidden_path())) return false;
  const std::string why = why_not_private(hidden_.get());
  if (!why.empty()) return failed(hidden_path(), why);
  std::string path;
  Fd parts;
  const bool opened = lock() && open_either(parts, path, "parts") &&
                      open_either(journals_, options_.journals, "journals") &&
                      open_either(incomplete_, options_.incomplete, "incomplete");
  if (opened) parts_ = PartFiles(std::move(parts));
  return opened;
}

/// Some file systems have no locks; there the operator must see to it.
bool Store::lock() {
  if (flock(hidden_.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
    error_ = "another receiver uses the folder " + options_.into;
  }
  return error_.empty();
}

std::string Store::hidden_path() const { return path_to(kHiddenFolder); }

std::string Store::path_to(const std::string& below) const { return join(options_.into, below); }

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

Delivery Store::deliver(const TransferKey& key, const std::vector<std::string>& folders,
                        const std::string& name, bool replace,
                        const std::optional<Attributes>& attributes) {
  Attributes own = plain();
  if (attributes) own.mtime = attributes->mtime;
  if (attributes && !options_.mode_given) own.mode = attributes->mode & ~mask_;
  std::string path = options_.into;
  std::size_t length = path.size() + name.size() + 2;
  for (const std::string& folder : folders) length += folder.size() + 1;
  if (length > PATH_MAX) return hopeless(name, "its path is longer than 4095 bytes");
  if (!std::all_of(folders.begin(), folders.end(), is_component))
    return hopeless(name, "a folder is not fit for a name");
  const PartFiles::Reserve reserve(parts_);
  const Fd folder = open_folders(folders, path);
  if (folder) return place(key, folder.get(), path, name, replace, own);
  const int error = errno;
  Delivery failed = failure("can't open the folder " + path, std::strerror(error));
  failed.barred = error == ENOTDIR && free_folders(folders) != folders;
  return failed;
}

bool Store::sync_part(const TransferKey& key) {
  const int fd = parts_.open_left(key);
  return fd >= 0 && (!options_.sync || fsync(fd) == 0);
}

std::vector<std::string> Store::free_folders(const std::vector<std::string>& folders) const {
  std::vector<std::string> free;
  for (const std::string& wanted : folders) {
    std::string path;
    const Fd above = open_folders(free, path);
    if (!above) return folders;
    std::string name = wanted;
    struct stat info {};
    const auto is_file = [&] {
      return fstatat(above.get(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 &&
             S_ISREG(info.st_mode);
    };
    for (int number = 1; is_file() && number < kMostNumbers; ++number) {
      name = with_suffix(wanted, " (" + std::to_string(number) + ")");
    }
    free.push_back(name);
  }
  return free;
}

std::string Store::free_name(const std::vector<std::string>& folders,
                             const std::string& name) const {
  std::string path;
  const Fd folder = open_folders(folders, path);
  return folder ? ::free_name(folder.get(), name) : "";
}

bool Store::has_file(const std::vector<std::string>& folders, const std::string& name) const {
  std::string path;
  const Fd folder = open_folders(folders, path);
  struct stat info {};
  return folder && fstatat(folder.get(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 &&
         !S_ISDIR(info.st_mode);
}

Delivery Store::deliver_journal(const TransferKey& key, std::int64_t send_time,
                                const std::string& name) {
  const std::string full = std::to_string(send_time) + "-" + key_text(key) + "-" + name;
  const PartFiles::Reserve reserve(parts_);
  return place(key, journals_.get(), options_.journals, fit_name(full), true, plain());
}

Delivery Store::keep_incomplete(const TransferKey& key, const std::string& name,
                                const std::string& note) {
  const std::string kept =
      fit_name(key_text(key) + "-" + name, NAME_MAX - std::strlen(kNoteSuffix));
  const std::string& path = options_.incomplete;
  if (!is_component(kept)) return hopeless(kept, "not fit for a name");
  const PartFiles::Reserve reserve(parts_);
  // the note first: what is incomplete never lies there without one
  if (!write_note(key, kept + kNoteSuffix, note))
    return failure("can't write " + join(path, kept + kNoteSuffix), std::strerror(errno));
  Delivery delivery = place(key, incomplete_.get(), path, kept, true, plain());
  if (!delivery.done) unlinkat(incomplete_.get(), (kept + kNoteSuffix).c_str(), 0);
  return delivery;
}

bool Store::write_note(const TransferKey& key, const std::string& name, const std::string& note) {
  const int folder = incomplete_.get();
  const Temporary temporary(folder, temporary_name(key), 0600);
  return temporary.fd() >= 0 && write_all(temporary.fd(), note) &&
         finish(temporary.fd(), plain()) &&
         renameat(folder, temporary.name(), folder, name.c_str()) == 0;
}

/// Finishes the growing file and moves it into the open `folder` at `path`.
Delivery Store::place(const TransferKey& key, int folder, const std::string& path,
                      const std::string& name, bool replace, const Attributes& attributes) {
  if (!is_component(name)) return hopeless(name, "not fit for a name");
  const Moved moved = move_here(key, folder, name, replace, attributes);
  if (moved != Moved::kYes) {
    const int error = errno;
    Delivery failed = failure("can't write " + join(path, name), std::strerror(error));
    // in the sandbox a folder in the way may not even be told from a missing right
    failed.taken = error == EEXIST || error == EISDIR || is_folder(folder, name);
    failed.hopeless = moved == Moved::kUnsafe || !parts_.has(key);
    return failed;
  }
  Delivery delivery;
  delivery.path = join(path, name);
  if (options_.sync && !sync_folder(folder)) {
    delivery.error = "can't sync the folder of " + delivery.path + ": " + std::strerror(errno) +
                     "; the file is in its place, but may not survive a power cut";
  }
  parts_.drop(key);  // there still is one beside a copy
  delivery.done = true;
  return delivery;
}

Store::Moved Store::move_here(const TransferKey& key, int folder, const std::string& name,
                              bool replace, const Attributes& attributes) {
  const int fd = parts_.open_left(key);
  struct stat from {};  // the folder: an overlay's files may show another device
  struct stat to {};
  if (fd < 0 || fstat(parts_.folder(), &from) != 0 || fstat(folder, &to) != 0) return Moved::kNo;
  const auto copied = [&] {
    return copy_here(key, fd, folder, name, replace, attributes) ? Moved::kYes : Moved::kNo;
  };
  if (from.st_dev != to.st_dev) return copied();
  if (!adorn(fd, attributes)) return Moved::kNo;
  if (options_.sync && fsync(fd) != 0) return Moved::kUnsafe;
  if (rename_to(parts_.folder(), key_text(key).c_str(), folder, name, replace)) return Moved::kYes;
  return errno == EXDEV ? copied() : Moved::kNo;  // mounted twice
}

bool Store::copy_here(const TransferKey& key, int fd, int folder, const std::string& name,
                      bool replace, const Attributes& attributes) const {
  const Temporary copy(folder, temporary_name(key), 0600);
  return copy.fd() >= 0 && lseek(fd, 0, SEEK_SET) == 0 && copy_contents(fd, copy.fd()) &&
         finish(copy.fd(), attributes) && rename_to(folder, copy.name(), folder, name, replace);
}

bool Store::finish(int fd, const Attributes& attributes) const {
  return adorn(fd, attributes) && (!options_.sync || fsync(fd) == 0);
}
