// bench/lab.h: what the measurements share: a clock, files, sockets, programs.
#pragma once

#include <netinet/in.h>
#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "ground/owners.h"

namespace fs = std::filesystem;

/// How much a run measures.
struct Extent {
  bool quick = false;

  template <typename T>
  T of(T full, T short_one) const {
    return quick ? short_one : full;
  }
};

/// Ends the bench with a message and status 1.
[[noreturn]] void fail(const std::string& text);

/// Monotonic clock, s.
double now();

/// What this process has run so far, s, in the kernel and outside.
double processor_seconds();

/// Sleeps for at least so long.
void rest(double seconds);

/// Moves this process and its children into a network of their own, which has
/// nothing but 127.0.0.1: no other traffic is counted or in the way. False
/// where that takes a right that is missing.
bool enter_own_network();

/// A folder under the one for temporary files, removed on every way out.
class WorkFolder {
 public:
  WorkFolder();
  ~WorkFolder() { fs::remove_all(path_); }
  WorkFolder(const WorkFolder&) = delete;
  WorkFolder& operator=(const WorkFolder&) = delete;

  std::string path(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

/// Writes a file of `size` bytes without a pattern, and leaves it in the cache.
void make_file(const std::string& path, std::uint64_t size);

/// A UDP socket bound to 127.0.0.1. It keeps `buffer` bytes of what comes, 0
/// for the system's default, and loses the rest.
class Sink {
 public:
  explicit Sink(int buffer = 0, std::uint16_t port = 0);
  int fd() const { return fd_.get(); }
  const sockaddr_in& at() const { return at_; }
  std::uint16_t port() const { return ntohs(at_.sin_port); }

 private:
  Fd fd_;
  sockaddr_in at_{};
};

/// A UDP socket to send from, with the send buffer that the program has.
Fd open_sender();

/// The full path of a program in PATH; "" if there is none.
std::string find_program(const std::string& name);

/// A program that was started; ended with this object if not before.
class Child {
 public:
  enum class Output { kDropped, kRead };

  /// `command` begins with a full path. Its errors go nowhere.
  Child(const std::vector<std::string>& command, Output output);
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  /// The next line that it writes within so long; "" if none comes.
  std::string read_line(double seconds);

  bool is_running();

  /// Waits for its end; returns all that it wrote.
  std::string finish();

  /// Its exit status; -1 while it runs, or if a signal ended it.
  int status() const { return status_; }

  /// Asks it to end (SIGTERM).
  void ask_to_end();

 private:
  void settle(int options);

  pid_t pid_ = -1;
  Fd output_;
  std::string read_;
  bool running_ = true;
  int status_ = -1;
};
