// tests/receiver/program.h: the receiver as a program, over 127.0.0.1.
#pragma once

#include <sys/prctl.h>
#include <sys/wait.h>

#include <csignal>

#include "harness.h"

/// Waits up to 60 s for it to hold; false if it never did.
inline bool eventually(const std::function<bool()>& holds) {
  for (int i = 0; i < 12'000 && !holds(); ++i) usleep(5'000);
  return holds();
}

/// A UDP socket that sends to a port of its own. The port lies below those that the system
/// hands out (ip(7), ip_local_port_range), and no other process of these tests tries it, so
/// it is still free when the program binds it.
struct Sender {
  Sender() {
    static int next = getpid() * 4;
    for (int status = -1; status != 0; ++next) {
      at = from("127.0.0.1", static_cast<std::uint16_t>(10'000 + next % 20'000));
      const Fd trial(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
      status = bind(trial.get(), reinterpret_cast<sockaddr*>(&at), sizeof at);
    }
    send_to("127.0.0.1");
    listen = "127.0.0.1:" + port();
  }
  std::string port() const { return std::to_string(ntohs(at.sin_port)); }
  void send_to(const char* address) {
    at.sin_addr.s_addr = inet_addr(address);
    EXPECT_EQ(0, connect(fd.get(), reinterpret_cast<sockaddr*>(&at), sizeof at));
  }
  void send(const Strings& datagrams) const {
    for (const std::string& d : datagrams) (void)::send(fd.get(), d.data(), d.size(), 0), usleep(9);
  }
  Fd fd{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
  sockaddr_in at;
  std::string listen;
};

/// Runs in the folder of `out`, which takes in all that it writes.
struct Program {
  Program(Strings arguments, const fs::path& out) {
    fs::remove(out);
    arguments.insert(arguments.begin(), RECEIVE);
    if ((pid = fork()) != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);  // a test that crashes leaves nothing running
    const int file = open(out.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    for (const int standard : {STDOUT_FILENO, STDERR_FILENO}) dup2(file, standard);
    if (chdir(out.parent_path().c_str()) == 0) execv(RECEIVE, to_argv(arguments).data());
    _exit(127);
  }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;
  ~Program() { end(SIGKILL); }
  /// The exit status, or the signal as a negative number.
  int end(int signal = 0) {
    if (pid > 0 && signal != 0) kill(pid, signal);
    if (pid > 0) waitpid(std::exchange(pid, 0), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }
  pid_t pid;
  int status = 0;
};
