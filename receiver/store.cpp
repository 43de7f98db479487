#include "receiver/store.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cinttypes>
#include <climits>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <utility>

#include "receiver/names.h"

namespace {

constexpr int kFolder = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
constexpr char kNoteSuffix[] = ".missing.txt";
constexpr off_t kCopyStep = 1 << 24;

struct DirCloser {
  void operator()(DIR* dir) const { closedir(dir); }
};

std::string hex_of(std::uint64_t id) {
  std::array<char, 17> text{};
  std::snprintf(text.data(), text.size(), "%016" PRIx64, id);
  return text.data();
}

std::string join(const std::string& folder, const std::string& name) {
  return folder.empty() || folder.back() == '/' ? folder + name : folder + "/" + name;
}

Delivery failure(const std::string& path, const std::string& why) {
  Delivery failed;
  failed.error = path + ": " + why;
  return failed;
}

/// Of a new file that must not last should anything fail: it goes with its owner
/// unless it has been renamed by then. No name off the wire begins so.
class Temporary {
 public:
  Temporary(int folder, std::uint64_t id)
      : folder_(folder), name_(std::string(kHiddenFolder) + "-" + hex_of(id)) {
    unlinkat(folder_, name(), 0);  // of a run that was killed
    fd_ = Fd(openat(folder_, name(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  }
  ~Temporary() {
    const int error = errno;
    unlinkat(folder_, name(), 0);
    errno = error;
  }
  Temporary(const Temporary&) = delete;
  Temporary& operator=(const Temporary&) = delete;

  int fd() const { return fd_.get(); }
  const char* name() const { return name_.c_str(); }

 private:
  int folder_;
  std::string name_;
  Fd fd_;
};

bool is_component(const std::string& name) {
  return !name.empty() && name != "." && name != ".." &&
         name.find_first_of(std::string("/\0", 2)) == std::string::npos;
}

/// Some file systems have nothing to sync in a folder, and say so by EINVAL.
bool sync_folder(int folder) { return fsync(folder) == 0 || errno == EINVAL; }

/// Invalid where the kernel lacks the call or a filter forbids it, and whenever a
/// folder is missing.
Fd open_beneath(int folder, const std::string& path) {
  open_how how{};
  how.flags = kFolder;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS;
  return Fd(static_cast<int>(syscall(SYS_openat2, folder, path.c_str(), &how, sizeof how)));
}

/// The folder `name` right in `folder`, made when missing.
Fd enter(int folder, const char* name, mode_t mode, bool sync) {
  Fd entered(openat(folder, name, kFolder | O_NOFOLLOW));
  if (entered || errno != ENOENT) return entered;
  if (mkdirat(folder, name, mode) != 0 && errno != EEXIST) return entered;
  if (sync && !sync_folder(folder)) return entered;
  return Fd(openat(folder, name, kFolder | O_NOFOLLOW));
}

Fd open_path(const std::string& path) {
  std::error_code told_by_open;
  std::filesystem::create_directories(path, told_by_open);
  return Fd(open(path.c_str(), kFolder));
}

bool exists(int folder, const std::string& name) {
  struct stat st {};
  return fstatat(folder, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0;
}

std::string numbered_name(const std::string& name, std::uint64_t number) {
  return with_suffix(name, " (" + std::to_string(number) + ")");
}

/// A number that is not taken. It is closed in on: a name that came ten thousand
/// times must not cost ten thousand calls each time.
std::uint64_t free_number(int folder, const std::string& name) {
  std::uint64_t taken = 0;
  std::uint64_t free = 1;
  for (; exists(folder, numbered_name(name, free)); free *= 2) taken = free;
  while (free - taken > 1) {
    const std::uint64_t middle = taken + (free - taken) / 2;
    (exists(folder, numbered_name(name, middle)) ? taken : free) = middle;
  }
  return free;
}

/// EEXIST when there is a `name`.
bool rename_new(int from, const char* old, int folder, const std::string& name) {
  if (renameat2(from, old, folder, name.c_str(), RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL && errno != ENOSYS) return false;
  // not on every file system; nor does a link replace anything
  return linkat(from, old, folder, name.c_str(), 0) == 0 && unlinkat(from, old, 0) == 0;
}

/// Moves a file; when `numbered`, `name` becomes one that was free.
bool rename_to(int from, const char* old, int folder, std::string& name, bool numbered) {
  if (!numbered) return renameat(from, old, folder, name.c_str()) == 0;
  std::string as = name;
  while (!rename_new(from, old, folder, as)) {
    if (errno != EEXIST) return false;
    as = numbered_name(name, free_number(folder, name));
  }
  name = as;
  return true;
}

/// Holes stay holes: a huge file of which little came must not fill a disk.
bool copy_contents(int from, int to) {
  struct stat st {};
  if (fstat(from, &st) != 0) return false;
  off_t at = 0;
  while ((at = lseek(from, at, SEEK_DATA)) >= 0) {
    const off_t end = lseek(from, at, SEEK_HOLE);
    if (end < 0 || lseek(to, at, SEEK_SET) < 0) return false;
    while (at < end) {
      errno = EIO;  // in case there is less than was said
      const auto step = static_cast<std::size_t>(std::min(end - at, kCopyStep));
      if (sendfile(to, from, &at, step) <= 0 && errno != EINTR) return false;
    }
  }
  return errno == ENXIO && ftruncate(to, st.st_size) == 0;  // no more data
}

bool write_all(int fd, const std::string& text) {
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t n = write(fd, text.data() + done, text.size() - done);
    if (n < 0 && errno != EINTR) return false;
    if (n > 0) done += static_cast<std::size_t>(n);
  }
  return true;
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
  Fd hidden;
  const auto open_either = [&](Fd& owner, std::string& path, const char* name) {
    if (!path.empty()) return opened(owner, open_path(path), path);
    path = join(hidden_path(), name);
    return opened(owner, enter(hidden.get(), name, 0700, options_.sync), path);
  };
  std::string parts;
  return opened(into_, open_path(options_.into), options_.into) &&
         opened(hidden, enter(into_.get(), kHiddenFolder, 0700, options_.sync), hidden_path()) &&
         open_either(parts_, parts, "parts") &&
         open_either(journals_, options_.journals, "journals") &&
         open_either(incomplete_, options_.incomplete, "incomplete");
}

std::string Store::hidden_path() const { return join(options_.into, kHiddenFolder); }

Fd Store::open_part(std::uint64_t id) { return open_part_as(id, O_CREAT); }

Fd Store::open_part_as(std::uint64_t id, int flags) {
  const std::string name = hex_of(id);
  const auto open_it = [&] {
    return Fd(openat(parts_.get(), name.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC | flags, 0600));
  };
  Fd part = open_it();
  // a delivery that failed left the permissions of the finished file
  if (!part && errno == EACCES && fchmodat(parts_.get(), name.c_str(), 0600, 0) == 0)
    part = open_it();
  return part;
}

void Store::drop_part(std::uint64_t id) { unlinkat(parts_.get(), hex_of(id).c_str(), 0); }

std::vector<std::uint64_t> Store::parts_left() {
  std::vector<std::uint64_t> ids;
  const int fd = openat(parts_.get(), ".", kFolder);  // closed by closedir(3)
  const std::unique_ptr<DIR, DirCloser> dir(fd < 0 ? nullptr : fdopendir(fd));
  if (!dir) return ids;
  while (const dirent* entry = readdir(dir.get())) {
    const std::string name = entry->d_name;
    std::uint64_t id = 0;
    std::from_chars(name.data(), name.data() + name.size(), id, 16);
    if (name == hex_of(id)) ids.push_back(id);
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
  const std::string full = std::to_string(send_time) + "-" + hex_of(id) + "-" + name;
  return place(id, fd, journals_.get(), options_.journals, fit_name(full), false);
}

Delivery Store::keep_incomplete(std::uint64_t id, const std::string& name,
                                const std::string& note) {
  const std::string kept = fit_name(hex_of(id) + "-" + name, NAME_MAX - std::strlen(kNoteSuffix));
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
  const Temporary temporary(folder, id);
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
  return rename_to(parts_.get(), hex_of(id).c_str(), folder, name, numbered) ||
         (errno == EXDEV && copy_here(id, fd, folder, name, numbered));  // mounted twice
}

bool Store::copy_here(std::uint64_t id, int fd, int folder, std::string& name, bool numbered) {
  const Temporary copy(folder, id);
  return copy.fd() >= 0 && copy_contents(fd, copy.fd()) && finish(copy.fd()) &&
         rename_to(folder, copy.name(), folder, name, numbered);
}
