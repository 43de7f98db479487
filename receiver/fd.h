// receiver/fd.h: owns a file descriptor. The sender has an owner of its own: the two
// programs share the description of the wire and nothing else.
#pragma once

#include <unistd.h>

#include <utility>

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

 private:
  int fd_;
};
