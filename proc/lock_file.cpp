#include "proc/lock_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <utility>

#include "softlib/links.h"

namespace {

bool is_ours(uid_t owner) { return owner == 0 || owner == geteuid(); }

bool names_process_of(int fd, uid_t owner) {
  const std::optional<shared_data> record = read_record(fd);
  struct stat process {};
  return record && names_one_process(record->pid) &&
         stat(("/proc/" + std::to_string(record->pid)).c_str(), &process) == 0 &&
         process.st_uid == owner;
}

bool is_believable(int fd) {
  struct stat st {};
  if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_nlink > 1) return false;
  return is_ours(st.st_uid) || names_process_of(fd, st.st_uid);
}

Fd open_believed(const std::string& path, int flags) {
  // O_NONBLOCK: open() must not wait, even if a pipe lies there
  Opened file = open_path(path, O_RDWR | flags | O_NONBLOCK | O_NOCTTY, 0600);
  if (!file || !is_believable(file.fd.get())) return Fd();
  // a daemon's lock file must get descriptor 0, but the folders on the way held lower numbers
  Fd lowest(fcntl(file.fd.get(), F_DUPFD_CLOEXEC, 0));
  return std::move(lowest && lowest.get() < file.fd.get() ? lowest : file.fd);
}

}  // namespace

Fd open_lock_file(const std::string& path) { return open_believed(path, O_CREAT); }

Fd find_lock_file(const std::string& path) { return open_believed(path, 0); }

std::optional<shared_data> record_in(const unsigned char* bytes, std::size_t size) {
  shared_data record;
  if (size < sizeof record) return std::nullopt;
  std::memcpy(&record, bytes, sizeof record);
  return record;
}

std::optional<shared_data> read_record(int fd) {
  std::array<unsigned char, sizeof(shared_data)> bytes{};
  const ssize_t size = pread(fd, bytes.data(), bytes.size(), 0);
  return record_in(bytes.data(), size < 0 ? 0 : static_cast<std::size_t>(size));
}

std::optional<int> recorded_pid(const std::string& path) {
  const Opened file = open_path(path, O_RDONLY | O_NONBLOCK | O_NOCTTY);
  if (!file) return std::nullopt;
  const std::optional<shared_data> record = read_record(file.fd.get());
  if (!record) return std::nullopt;
  return record->pid;
}
