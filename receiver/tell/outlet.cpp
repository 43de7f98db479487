#include "receiver/tell/outlet.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <thread>

namespace {

constexpr std::size_t kMostWaiting = 1 << 20;
constexpr auto kBetweenTries = std::chrono::milliseconds(10);

/// Opens the same pipe or terminal again, since making the given descriptor non-blocking would
/// affect all who share it. Returns an empty Fd where the system does not allow it.
Fd open_without_blocking(int fd) {
  struct stat st {};
  if (fstat(fd, &st) != 0 || (!S_ISFIFO(st.st_mode) && !S_ISCHR(st.st_mode))) return Fd();
  const std::string path = "/proc/self/fd/" + std::to_string(fd);
  return Fd(open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

}  // namespace

Outlet::Outlet(int fd) : fd_(fd), own_(open_without_blocking(fd)) {}

void Outlet::redirect(int fd) {
  fd_ = fd;
  own_ = open_without_blocking(fd);
}

void Outlet::put(const std::string& text) {
  flush();
  if (waiting_.size() + text.size() > kMostWaiting) {
    ++dropped_;
    return;
  }
  waiting_ += text;
  flush();
}

void Outlet::drain(std::chrono::milliseconds patience) {
  const auto end = std::chrono::steady_clock::now() + patience;
  for (flush(); !waiting_.empty() && std::chrono::steady_clock::now() < end; flush()) {
    std::this_thread::sleep_for(kBetweenTries);
  }
}

/// A reader that is gone costs the text (SIGPIPE is the program's to ignore).
void Outlet::flush() {
  while (!waiting_.empty() && (own_ || is_ready())) {
    // no more than a pipe that is ready takes at once (pipe(7))
    const std::size_t size =
        own_ ? waiting_.size() : std::min<std::size_t>(waiting_.size(), PIPE_BUF);
    const ssize_t written = write(own_ ? own_.get() : fd_, waiting_.data(), size);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0 && errno == EAGAIN) return;
    if (written < 0) {
      waiting_.clear();
      return;
    }
    waiting_.erase(0, static_cast<std::size_t>(written));
  }
}

bool Outlet::is_ready() const {
  pollfd ready{fd_, POLLOUT, 0};
  return poll(&ready, 1, 0) > 0;
}
