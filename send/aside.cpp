#include "send/aside.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <set>
#include <tuple>

#include "softlib/file_system.h"

namespace {

const std::string kPrefix = ".tarnwick-taken~";

bool lacks_noreplace(int error) { return error == EINVAL || error == ENOSYS; }

/// Renames unless `to` exists. Returns 0, or the errno of the failure.
int rename_new(int from_folder, const char* from, int to_folder, const char* to) {
  return renameat2(from_folder, from, to_folder, to, RENAME_NOREPLACE) == 0 ? 0 : errno;
}

/// Like rename_new(), but also works where the file system has no RENAME_NOREPLACE.
/// Between the test and the renaming somebody could then create `to`, so only we may
/// use such names.
int rename_aside(int from_folder, const char* from, int to_folder, const char* to) {
  const int error = rename_new(from_folder, from, to_folder, to);
  if (!lacks_noreplace(error)) return error;
  struct stat st {};
  if (fstatat(to_folder, to, &st, AT_SYMLINK_NOFOLLOW) == 0) return EEXIST;
  return renameat(from_folder, from, to_folder, to) == 0 ? 0 : errno;
}

/// Like rename_new(), but also works where the file system has no RENAME_NOREPLACE, except
/// for folders. Both names then exist for a moment, so only we may use names such as `from`.
int rename_back(int from_folder, const char* from, int to_folder, const char* to) {
  const int error = rename_new(from_folder, from, to_folder, to);
  if (!lacks_noreplace(error)) return error;
  if (linkat(from_folder, from, to_folder, to, 0) != 0) return errno;
  return unlinkat(from_folder, from, 0) == 0 ? 0 : errno;
}

using Place = std::tuple<dev_t, ino_t, std::string>;

Place place_of(int folder, const std::string& name) {
  struct stat st {};
  (void)fstat(folder, &st);  // it is open
  return {st.st_dev, st.st_ino, name};
}

/// Files aside that a newer file of the same name has overtaken: this run has removed the
/// newer one. Sent under its own name now, the older file would replace the newer one at
/// the receiver.
std::set<Place>& outlived() {
  static std::set<Place> names;
  return names;
}

}  // namespace

bool is_aside(const std::string& name) {
  return name.size() > kPrefix.size() && name.compare(0, kPrefix.size(), kPrefix) == 0;
}

bool is_aside_folder(const std::string& name) { return name == kPrefix; }

std::string name_of_aside(const std::string& aside) { return aside.substr(kPrefix.size()); }

std::string give_name_back(int folder, const std::string& aside) {
  if (outlived().count(place_of(folder, aside)) != 0) return aside;
  std::string name = name_of_aside(aside);
  return rename_back(folder, aside.c_str(), folder, name.c_str()) == 0 ? name : aside;
}

int give_all_back(int folder, int aside) {
  const Dir stream(fdopendir(openat(aside, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)));
  int given = 0;
  if (!stream) return given;
  while (const dirent* entry = readdir(stream.get())) {
    if (is_dot_entry(entry->d_name)) continue;
    if (rename_back(aside, entry->d_name, folder, entry->d_name) == 0) ++given;
  }
  return given;
}

Aside::Aside(int folder, const std::string& name) : home_(folder), home_name_(name), name_(name) {
  do {  // the name is in use if a killed run left a file there and its own name is taken again
    name_.insert(0, kPrefix);
    error_ = rename_aside(home_, name.c_str(), home_, name_.c_str());
    if (error_ == EEXIST) outlived().insert(place_of(home_, name_));
  } while (error_ == EEXIST);
  if (error_ == ENAMETOOLONG) take_to_own_folder();
  is_taken_ = error_ == 0;
}

void Aside::take_to_own_folder() {
  name_ = home_name_;
  if (mkdirat(home_, kPrefix.c_str(), 0700) != 0 && errno != EEXIST) {
    error_ = errno;
    return;
  }
  own_folder_ = Fd(openat(home_, kPrefix.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  error_ =
      own_folder_ ? rename_aside(home_, name_.c_str(), own_folder_.get(), name_.c_str()) : errno;
}

Aside::~Aside() {
  // a file whose name was taken meanwhile stays here, and a later pass finds it
  if (is_taken_) (void)rename_back(folder(), name_.c_str(), home_, home_name_.c_str());
  if (own_folder_) (void)unlinkat(home_, kPrefix.c_str(), AT_REMOVEDIR);  // fails while it is used
}

bool Aside::remove() {
  error_ = unlinkat(folder(), name_.c_str(), 0) == 0 ? 0 : errno;
  if (error_ == 0) is_taken_ = false;
  return error_ == 0;
}

bool Aside::move_to(int folder, const std::string& name) {
  error_ = renameat(this->folder(), name_.c_str(), folder, name.c_str()) == 0 ? 0 : errno;
  if (error_ == 0) is_taken_ = false;
  return error_ == 0;
}
