// ground/owners.h: owners of what the system must get back.
//
//   const Dir dir(opendir(path.c_str()));
//   if (!dir) return -1;
#pragma once

#include <dirent.h>
#include <unistd.h>

#include <memory>
#include <utility>

struct DirCloser {
  void operator()(DIR* dir) const { closedir(dir); }
};

/// An open directory stream; null when opendir() failed.
using Dir = std::unique_ptr<DIR, DirCloser>;

/// An open file descriptor, closed on destruction; -1 owns nothing.
class Fd {
 public:
  explicit Fd(int fd = -1) noexcept : fd_(fd) {}
  Fd(Fd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Fd& operator=(Fd&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  ~Fd() {
    if (fd_ >= 0) close(fd_);
  }

  explicit operator bool() const { return fd_ >= 0; }
  int get() const { return fd_; }

  /// Hands the descriptor over to the caller, who closes it.
  int release() { return std::exchange(fd_, -1); }

 private:
  int fd_;
};
