// What a process in the sandbox can still do. Each case enters it in a child.
#include "receiver/sandbox/sandbox.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>

#include "ground/owners.h"

namespace fs = std::filesystem;

namespace {

struct Sandbox : testing::Test {
  Sandbox() {
    for (const char* folder : {"a", "b/sub", "out"}) fs::create_directories(root / folder);
    std::ofstream(victim) << "precious";
    fs::create_symlink(victim, root / "a/link");
  }
  ~Sandbox() override { fs::remove_all(root); }

  using Calls = std::vector<std::pair<const char*, std::function<bool()>>>;

  /// The names of those `calls`, each with a space behind, that succeed in a child
  /// for which `enter` returned "", or the text that it returned.
  static std::string succeed(const std::function<std::string()>& enter, const Calls& calls) {
    const Fd said(memfd_create("said", MFD_CLOEXEC));
    const pid_t child = fork();
    if (child == 0) {
      std::string names = enter();
      for (const auto& [name, call] : names.empty() ? calls : Calls())
        names += call() ? std::string(name) + " " : "";
      _exit(write(said.get(), names.data(), names.size()) < 0 ? 1 : 0);
    }
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    std::ostringstream names;
    names << std::ifstream("/proc/self/fd/" + std::to_string(said.get())).rdbuf();
    return names.str();
  }
  std::function<std::string()> files() const {
    return [this] {
      (void)prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);  // as enter_sandbox() does first
      return restrict_files({open((root / "a").c_str(), O_PATH), -1,
                             open((root / "b").c_str(), O_RDONLY | O_DIRECTORY)});
    };
  }
  std::function<bool()> creates(const char* path, int flags = O_CREAT) const {
    return [=] { return open((root / path).c_str(), O_WRONLY | flags, 0600) >= 0; };
  }
  std::function<bool()> moves(const char* from, const char* to) const {
    return [=] { return rename((root / from).c_str(), (root / to).c_str()) == 0; };
  }
  static bool starts() {
    const pid_t child = fork();
    if (child == 0) execl("/bin/sh", "sh", "-c", ":", nullptr);
    if (child == 0) _exit(1);
    int status = 0;
    return waitpid(child, &status, 0) == child && status == 0;
  }

  std::string made = fs::temp_directory_path() / "sandbox_XXXXXX";
  const fs::path root = mkdtemp(made.data()), victim = root / "out/victim";
};

}  // namespace

TEST_F(Sandbox, FilesAreWrittenBelowTheFoldersOnly) {
  if (const std::string lacking = succeed(files(), {}); !lacking.empty()) GTEST_SKIP() << lacking;
  const std::string done = succeed(
      files(), {{"create", creates("a/file")},
                {"move", moves("a/file", "b/sub/file")},
                {"truncate", [&] { return truncate((root / "b/sub/file").c_str(), 1) == 0; }},
                {"delete", [&] { return unlink((root / "b/sub/file").c_str()) == 0; }},
                {"folder", [&] { return mkdir((root / "a/new").c_str(), 0700) == 0; }},
                {"read", [&] { return std::ifstream(victim).get() == 'p'; }},
                {"OUT", creates("out/file")},
                {"OUT-HERE", creates("file")},
                {"LINK", creates("a/link", 0)},
                {"WRITE", creates("out/victim", 0)},
                {"TRUNCATE", [&] { return truncate(victim.c_str(), 1) == 0; }},
                {"DELETE", [&] { return unlink(victim.c_str()) == 0; }},
                {"TAKE", moves("out/victim", "a/victim")},
                {"REPLACE", moves("a/new", "out/new")},
                {"SYMLINK", [&] { return symlink("x", (root / "a/x").c_str()) == 0; }},
                {"PIPE", [&] { return mkfifo((root / "a/pipe").c_str(), 0600) == 0; }},
                {"START", starts}});
  EXPECT_EQ("create move truncate delete folder read ", done);
}

TEST_F(Sandbox, CallsThatAReceiverDoesNotNeedFail) {
  if (const std::string lacking = succeed(restrict_calls, {}); !lacking.empty())
    GTEST_SKIP() << lacking;
  const int udp = socket(AF_INET, SOCK_DGRAM, 0), file = open(victim.c_str(), O_RDWR);
  sockaddr_in at{AF_INET, htons(9), {htonl(INADDR_LOOPBACK)}, {}};
  auto* const to = reinterpret_cast<sockaddr*>(&at);
  int pair[2] = {};
  ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_DGRAM, 0, pair));
  const auto denied = [](auto result) { return result >= 0 || errno != EPERM; };
  std::atomic<bool> confined{false}, escaped{true};
  const auto enter = [&] {
    std::thread([&] {  // none escapes that was there before
      while (!confined) sched_yield();
      escaped = denied(socket(AF_INET, SOCK_DGRAM, 0));
      confined = false;
    })
        .detach();
    return restrict_calls();
  };
  const Calls calls = {
      {"send", [&] { return send(pair[0], "x", 1, 0) == 1; }},
      {"receive", [&] { return recv(pair[1], &at.sin_zero, 1, 0) == 1; }},
      {"chmod", [&] { return fchmod(file, 0777) == 0; }},
      {"signal", [] { return kill(getpid(), 0) == 0 && raise(SIGCONT) == 0; }},
      {"thread", [] { return std::thread([] {}).join(), true; }},
      {"EARLIER",
       [&] {
         for (confined = true; confined;) sched_yield();
         return escaped.load();
       }},
      {"SOCKET", [&] { return denied(socket(AF_INET, SOCK_DGRAM, 0)); }},
      {"UNIX", [&] { return denied(socket(AF_UNIX, SOCK_STREAM, 0)); }},
      {"CONNECT", [&] { return denied(connect(udp, to, sizeof at)); }},
      {"BIND", [&] { return denied(bind(udp, to, sizeof at)); }},
      {"SEND-TO", [&] { return denied(sendto(udp, "x", 1, 0, to, sizeof at)); }},
      {"START", starts},
      {"KILL", [&] { return denied(kill(getppid(), 0)); }},
      {"KILL-ALL", [&] { return denied(kill(-1, 0)); }},
      {"SETUID", [&] { return denied(setuid(getuid())); }},
      {"CHOWN", [&] { return denied(fchown(file, getuid(), getgid())); }},
      {"SUID-FILE", [&] { return denied(fchmod(file, 04755)); }},
      {"NAMESPACE", [&] { return denied(unshare(CLONE_FS)); }},
#ifndef TARNWICK_LEAK_SANITIZER
      {"PTRACE", [&] { return denied(ptrace(PTRACE_TRACEME, 0, nullptr, nullptr)); }},
#endif
  };
  EXPECT_EQ("send receive chmod signal thread ", succeed(enter, calls));
}
