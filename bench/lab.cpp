#include "bench/lab.h"

#include <fcntl.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iostream>
#include <random>
#include <sstream>
#include <thread>

void fail(const std::string& text) {
  std::cout << std::flush;
  std::cerr << "tarnwick-bench: " << text << "\n";
  std::exit(1);
}

double now() {
  const auto since = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration<double>(since).count();
}

double processor_seconds() {
  std::timespec used{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
  return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
}

void rest(double seconds) { std::this_thread::sleep_for(std::chrono::duration<double>(seconds)); }

bool enter_own_network() {
  if (unshare(CLONE_NEWNET) != 0) return false;
  const Fd any(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq loopback{};
  std::strcpy(loopback.ifr_name, "lo");
  loopback.ifr_flags = IFF_UP;
  if (ioctl(any.get(), SIOCSIFFLAGS, &loopback) != 0) fail("127.0.0.1 can't be brought up");
  return true;
}

WorkFolder::WorkFolder() : path_(fs::canonical(fs::temp_directory_path()) / "bench_XXXXXX") {
  if (mkdtemp(path_.data()) == nullptr) fail("no folder for temporary files");
}

void make_file(const std::string& path, std::uint64_t size) {
  std::mt19937_64 numbers(size);
  std::vector<std::uint64_t> block(1 << 17);
  std::ofstream file(path, std::ios::binary);
  for (std::uint64_t left = size; left > 0;) {
    for (std::uint64_t& eight : block) eight = numbers();
    const std::uint64_t chunk = std::min<std::uint64_t>(left, block.size() * sizeof block[0]);
    file.write(reinterpret_cast<const char*>(block.data()), static_cast<std::streamsize>(chunk));
    left -= chunk;
  }
  file.close();
  if (!file) fail("can't write " + path);
}

Sink::Sink(int buffer, std::uint16_t port) : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  if (buffer != 0 &&
      setsockopt(fd_.get(), SOL_SOCKET, SO_RCVBUFFORCE, &buffer, sizeof buffer) != 0) {
    fail("a receive buffer of that size takes CAP_NET_ADMIN");
  }
  at_.sin_family = AF_INET;
  at_.sin_port = htons(port);
  at_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof at_;
  if (bind(fd_.get(), reinterpret_cast<const sockaddr*>(&at_), len) != 0 ||
      getsockname(fd_.get(), reinterpret_cast<sockaddr*>(&at_), &len) != 0) {
    fail("can't bind a socket");
  }
}

Fd open_sender() {
  constexpr int kBuffer = 16 << 20;
  Fd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (setsockopt(fd.get(), SOL_SOCKET, SO_SNDBUFFORCE, &kBuffer, sizeof kBuffer) != 0) {
    fail("a send buffer of that size takes CAP_NET_ADMIN");
  }
  return fd;
}

std::string find_program(const std::string& name) {
  const char* const path = std::getenv("PATH");
  std::istringstream folders(std::string(path != nullptr ? path : "") + ":/usr/sbin:/sbin");
  for (std::string folder; std::getline(folders, folder, ':');) {
    if (folder.empty()) continue;
    folder.append("/").append(name);
    if (access(folder.c_str(), X_OK) == 0) return folder;
  }
  return "";
}

Child::Child(const std::vector<std::string>& command, Output output) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) fail("no pipe");
  output_ = Fd(ends[0]);
  const Fd its_output(ends[1]);
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  pid_ = fork();
  if (pid_ < 0) fail("no process");
  if (pid_ > 0) return;
  prctl(PR_SET_PDEATHSIG, SIGKILL);  // however the bench ends, nothing is left running
  const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
  dup2(nowhere, STDIN_FILENO);
  dup2(output == Output::kRead ? its_output.get() : nowhere, STDOUT_FILENO);
  dup2(nowhere, STDERR_FILENO);
  execv(arguments[0], arguments.data());
  _exit(127);
}

Child::~Child() {
  if (is_running()) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
}

std::string Child::read_line(double seconds) {
  const double end = now() + seconds;
  while (true) {
    if (const std::size_t at = read_.find('\n'); at != std::string::npos) {
      std::string line = read_.substr(0, at);
      read_.erase(0, at + 1);
      return line;
    }
    pollfd ready{output_.get(), POLLIN, 0};
    const int left = std::max(0, static_cast<int>((end - now()) * 1000));
    if (poll(&ready, 1, left) <= 0) return "";
    char block[4096];
    const ssize_t got = read(output_.get(), block, sizeof block);
    if (got <= 0) return "";
    read_.append(block, static_cast<std::size_t>(got));
  }
}

bool Child::is_running() {
  if (running_) settle(WNOHANG);
  return running_;
}

void Child::settle(int options) {
  int status = 0;
  if (waitpid(pid_, &status, options) == 0) return;
  running_ = false;
  if (WIFEXITED(status)) status_ = WEXITSTATUS(status);
}

std::string Child::finish() {
  char block[4096];
  for (ssize_t got = 0; (got = read(output_.get(), block, sizeof block)) > 0;) {
    read_.append(block, static_cast<std::size_t>(got));
  }
  if (running_) settle(0);
  return read_;
}

void Child::ask_to_end() { kill(pid_, SIGTERM); }
