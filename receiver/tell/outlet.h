// receiver/tell/outlet.h: text to the operator, never waited for. A pipe that nobody
// reads, or a stopped terminal, must not hold up the files.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "ground/owners.h"

class Outlet {
 public:
  /// Writes to the descriptor `fd`, which the caller keeps open.
  explicit Outlet(int fd);

  int fd() const { return fd_; }

  /// Writes to `fd` from here on, what still waits included.
  void redirect(int fd);

  /// Writes `text`, as far as that is possible at once; what is left waits, up to 1 MiB.
  /// Beyond that the whole text is dropped.
  void put(const std::string& text);

  /// Goes on with what waits. To be called now and then.
  void flush();

  /// Goes on for up to `patience`, at the end of the program.
  void drain(std::chrono::milliseconds patience);

  /// True if nothing waits.
  bool is_clear() const { return waiting_.empty(); }

  /// Texts dropped so far.
  std::uint64_t dropped() const { return dropped_; }

 private:
  bool is_ready() const;

  int fd_;
  Fd own_;  ///< a description of our own for the same pipe, which can be non-blocking
  std::string waiting_;
  std::uint64_t dropped_ = 0;
};
