// tests/program/support.h: runs the program as a child and takes in its datagrams.
//
//   TempDir home;
//   Collector net;
//   Program program(home, {"-p:" + net.port, "-f:in"});
//   EXPECT_EQ(0, program.wait());
//   EXPECT_EQ(files, rebuild(net.packets()));
//
// What is known of the wire here is written down once more, on purpose: a slip
// in the program's own description of it must not hide itself.
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ground/owners.h"

namespace fs = std::filesystem;

/// True if the program may do without its options --send-buffer and --run-dir.
inline bool has_privileges() {
  const int wanted = 1 << 24;
  const Fd sock(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  return setsockopt(sock.get(), SOL_SOCKET, SO_SNDBUFFORCE, &wanted, sizeof wanted) == 0 &&
         access("/var/run", W_OK) == 0;
}

/// Moves this process to a network of its own, where it is root; an ordinary user needs a
/// user namespace for that (user_namespaces(7)). False where the system has none for us.
inline bool enter_own_network() {
  if (unshare(CLONE_NEWNET) == 0) return true;
  const std::string map = "0 " + std::to_string(geteuid()) + " 1";
  return unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0 &&
         static_cast<bool>(std::ofstream("/proc/self/uid_map") << map << std::flush);
}

/// Waits up to 60 s for it to hold; false if it never did.
inline bool eventually(const std::function<bool()>& holds) {
  for (int i = 0; i < 12'000 && !holds(); ++i) usleep(5'000);
  return holds();
}

/// The whole file; "" if it can't be read.
inline std::string read_file(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// The working folder of a program. Its own name is the program's name, so the
/// lock file is unique too. At the end, be it a crash of the test, what still runs
/// under that name is killed and both are removed. Where privileges are missing, or
/// a test asks for it, programs run with the options that need none.
class TempDir {
 public:
  TempDir() = default;
  ~TempDir() { pclose(cleaner_); }
  TempDir(TempDir&&) = delete;

  std::string path(const std::string& name) const { return path_ + "/" + name; }
  std::string program() const { return path(path_.substr(path_.rfind('/') + 1)); }
  std::string lock() const { return ordinary ? program() + ".lock" : privileged_lock(); }
  bool has(const std::string& name) const { return fs::exists(path(name)); }

  /// Creates the file, and the folders on the way to it.
  void write(const std::string& name, const std::string& bytes) const {
    fs::create_directories(fs::path(path(name)).parent_path());
    std::ofstream(path(name), std::ios::binary) << bytes;
  }

  bool ordinary = !has_privileges();  ///< programs are to need no privilege

 private:
  std::string privileged_lock() const {
    return "/var/run" + path_.substr(path_.rfind('/')) + ".lock";
  }
  FILE* start_cleaner() {
    EXPECT_NE(nullptr, mkdtemp(path_.data()));
    const std::string ours = "grep -la '^" + path_ + "/' /proc/[0-9]*/cmdline | tr -dc '0-9\\n'";
    const std::string clean =
        "kill -9 $(" + ours + "); rm -rf '" + path_ + "' " + privileged_lock();
    return popen(("exec 2>&-; trap '' INT; read end; " + clean).c_str(), "we");
  }

  std::string path_ = fs::canonical(fs::temp_directory_path()) / "tarnwick_XXXXXX";
  FILE* const cleaner_ = start_cleaner();
};

/// A running program; at the end it is killed if need be.
class Program {
 public:
  /// `in_child` comes right before the program.
  Program(
      const TempDir& home, std::vector<std::string> options,
      const std::function<void()>& in_child = [] {}) {
    int ends[2];
    EXPECT_EQ(0, pipe2(ends, O_CLOEXEC));
    const Fd its_input(ends[0]);
    input = Fd(ends[1]);
    if (home.ordinary) {
      options.insert(options.begin(), {"--send-buffer=64K", "--run-dir=."});
    }
    options.insert(options.begin(), home.program());
    std::vector<char*> argv;
    for (std::string& option : options) argv.push_back(option.data());
    argv.push_back(nullptr);
    setenv("LC_ALL", "C.UTF-8", 1);
    pid = fork();
    if (pid != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);  // a test that crashes leaves nothing running
    dup2(its_input.get(), STDIN_FILENO);
    dup2(out_.get(), STDOUT_FILENO);
    dup2(err_.get(), STDERR_FILENO);
    in_child();
    if (chdir(home.path("").c_str()) == 0) execv(TARNWICK, argv.data());
    _exit(127);
  }
  ~Program() {
    if (status_ == -1) kill(pid, SIGKILL);
    wait();
  }

  /// The exit status, or the signal as a negative number; -1 after 60 s.
  int wait() {
    const auto ended = [this] { return status_ != -1 || waitpid(pid, &status_, WNOHANG) != 0; };
    if (!eventually(ended)) return -1;
    return WIFEXITED(status_) ? WEXITSTATUS(status_) : -WTERMSIG(status_);
  }

  /// Its exit status, a space, and all that it wrote.
  std::string told() {
    const int status = wait();
    return std::to_string(status) + " " + out() + err();
  }

  /// What it has written so far.
  std::string out() const { return read_file(kOpened + std::to_string(out_.get())); }
  std::string err() const { return read_file(kOpened + std::to_string(err_.get())); }

  int pid;
  Fd input;  ///< of the pipe that is its standard input

 private:
  const std::string kOpened = "/proc/self/fd/";
  Fd out_{memfd_create("stdout", MFD_CLOEXEC)};
  Fd err_{memfd_create("stderr", MFD_CLOEXEC)};
  int status_ = -1;  ///< as waitpid() returned it; -1 until then
};

struct Packet {
  std::uint64_t arrived;  ///< ns since 1970, stamped by the kernel
  std::string bytes;

  /// The little-endian number of `width` bytes there; throws where there is none.
  std::uint64_t field(std::size_t offset, std::size_t width) const {
    std::uint64_t value = 0;
    while (width-- > 0) value = value << 8 | static_cast<unsigned char>(bytes.at(offset + width));
    return value;
  }
  bool is_service() const { return field(0, 8) == ~std::uint64_t{0}; }
  bool is_header() const { return !is_service() && field(8, 8) == 0; }
};

/// The files by folder at the receiver, "/" and name: their bytes as each pass
/// carried them. Passes without data packets count as one.
inline std::map<std::string, std::vector<std::string>> rebuild(const std::vector<Packet>& packets) {
  std::map<std::string, std::vector<std::string>> files;
  std::map<std::uint64_t, Packet> headers;
  for (const Packet& packet : packets) {
    if (packet.is_service()) continue;
    Packet& header = headers[packet.field(0, 8)];
    if (packet.is_header()) header = packet;
    const std::string name = header.bytes.substr(84).c_str();  // throws before the header came
    auto& passes = files[header.bytes.substr(85 + name.size()).c_str() + ("/" + name)];
    if (packet.is_header() && (passes.empty() || !passes.back().empty())) passes.emplace_back();
    if (packet.is_header()) continue;
    const std::size_t len = packet.field(16, 4);
    const std::size_t at = (packet.field(8, 8) - 1) * (header.field(36, 4) - 20);
    passes.back().resize(std::max(passes.back().size(), at + len));
    passes.back().replace(at, len, packet.bytes, 20);
  }
  return files;
}

/// A UDP socket at 127.0.0.1, and its port.
struct Receiver {
  Receiver() {
    sockaddr_in at{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t len = sizeof at;
    EXPECT_EQ(0, bind(sock.get(), reinterpret_cast<sockaddr*>(&at), len));
    EXPECT_EQ(0, getsockname(sock.get(), reinterpret_cast<sockaddr*>(&at), &len));
    port = std::to_string(ntohs(at.sin_port));
  }
  Fd sock{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
  std::string port;
};

/// Collects datagrams. With privileges the kernel keeps what comes in, up to 512 MiB, so
/// nothing is lost however late it is read; without, it is read in time where the senders
/// keep to pace().
class Collector : Receiver {
 public:
  using Receiver::port;

  Collector() {
    for (const int option : {SO_RCVBUF, SO_RCVBUFFORCE})
      setsockopt(sock.get(), SOL_SOCKET, option, &kBuffer, sizeof kBuffer);
    timespec none;
    (void)ioctl(sock.get(), SIOCGSTAMPNS, &none);  // stamps arrivals from now on
    reader_ = std::thread([this] { read(); });
  }
  ~Collector() {
    ended_ = true;
    reader_.join();
  }
  Collector(Collector&&) = delete;

  /// What came since the last call, up to a silence of 0.2 s.
  std::vector<Packet> packets() const {
    for (std::size_t before = ~0UL; before != count_ || is_readable(0); usleep(200'000))
      before = count_;
    const std::lock_guard<std::mutex> guard(mutex_);
    return std::exchange(packets_, {});
  }

  /// Bytes, with what the kernel adds to each datagram, that wait without loss.
  int room() const {
    int size = 0;
    socklen_t len = sizeof size;
    EXPECT_EQ(0, getsockopt(sock.get(), SOL_SOCKET, SO_RCVBUF, &size, &len));
    return size;
  }

  /// The option for a sender of more than fits into an ordinary receive buffer.
  std::string pace() const { return room() < kBuffer ? "-s:100" : "-s:0"; }

 private:
  bool is_readable(int timeout_ms) const {
    pollfd ready{sock.get(), POLLIN, 0};
    return poll(&ready, 1, timeout_ms) > 0;
  }
  void read() {
    std::string buffer(1 << 16, '\0');
    while (!ended_) {
      if (!is_readable(50)) continue;
      const std::lock_guard<std::mutex> guard(mutex_);
      const auto len = static_cast<std::size_t>(recv(sock.get(), buffer.data(), buffer.size(), 0));
      timespec at;
      EXPECT_EQ(0, ioctl(sock.get(), SIOCGSTAMPNS, &at));
      const auto arrived = static_cast<std::uint64_t>(at.tv_sec * 1'000'000'000 + at.tv_nsec);
      packets_.push_back({arrived, buffer.substr(0, len)});
      ++count_;
    }
  }

  static constexpr int kBuffer = 512 << 20;
  mutable std::mutex mutex_;
  mutable std::vector<Packet> packets_;
  std::atomic<std::size_t> count_{0};  ///< of all so far
  std::atomic<bool> ended_{false};
  std::thread reader_;
};
