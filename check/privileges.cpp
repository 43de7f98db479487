#include "check/privileges.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

#include "ground/owners.h"
#include "send/socket.h"
#include "state/settings.h"

namespace {

/// Returns how many processes don't let us read their descriptors; -1 if /proc can't be read.
int hidden_processes() {
  std::error_code error;
  const std::filesystem::directory_iterator processes("/proc", error);
  if (error) return -1;
  int hidden = 0;
  for (const auto& entry : processes) {
    const std::string id = entry.path().filename();
    if (id.find_first_not_of("0123456789") != std::string::npos) continue;
    const Fd folder(open((entry.path() / "fd").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder && (errno == EACCES || errno == EPERM)) ++hidden;
  }
  return hidden;
}

bool is_first_pid_namespace() {
  constexpr ino_t kFirst = 0xEFFFFFFC;  // PROC_PID_INIT_INO of Linux
  struct stat st {};
  return stat("/proc/self/ns/pid", &st) != 0 || st.st_ino == kFirst;
}

}  // namespace

void check_socket(Findings& findings) {
  const Fd probe(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!probe) {
    findings.stop("privileges", std::string("no socket can be opened: ") + std::strerror(errno));
  } else if (settings.send_buffer == 0) {
    const int wanted = kSendBuffer;
    if (setsockopt(probe.get(), SOL_SOCKET, SO_SNDBUFFORCE, &wanted, sizeof wanted) == 0) return;
    findings.stop("privileges",
                  "the send buffer can't be forced, which needs CAP_NET_ADMIN: "
                  "--send-buffer=4M does without");
  } else {
    int granted = 0;
    socklen_t len = sizeof granted;
    const int wanted = settings.send_buffer;
    (void)setsockopt(probe.get(), SOL_SOCKET, SO_SNDBUF, &wanted, sizeof wanted);
    (void)getsockopt(probe.get(), SOL_SOCKET, SO_SNDBUF, &granted, &len);
    granted /= 2;  // socket(7): the kernel reports twice as much
    if (granted < wanted)
      findings.warn("privileges",
                    "--send-buffer gets " + std::to_string(granted) + " of " +
                        std::to_string(wanted) +
                        " bytes: sysctl -w net.core.wmem_max=" + std::to_string(wanted));
  }
}

void check_open_file_search(Findings& findings) {
  const int hidden = hidden_processes();
  if (hidden < 0) {
    findings.stop("open files", "/proc can't be read: every file counts as open, and none is sent");
    return;
  }
  if (hidden > 0)
    findings.warn("open files", std::to_string(hidden) +
                                    " processes of other users can't be looked into: what they "
                                    "hold open is sent and deleted; CAP_SYS_PTRACE and "
                                    "CAP_DAC_READ_SEARCH let the sender see it");
  struct stat st {};
  if (stat("/proc/1", &st) != 0)
    findings.warn("open files",
                  "/proc hides the processes of other users (hidepid): what they "
                  "hold open is sent and deleted");
  if (!is_first_pid_namespace())
    findings.note("open files",
                  "only processes in this container are seen: what others hold open "
                  "is sent and deleted");
}

bool input_is_at_end() {
  struct stat st {};
  if (fstat(STDIN_FILENO, &st) != 0) return true;
  if (S_ISREG(st.st_mode)) return lseek(STDIN_FILENO, 0, SEEK_CUR) >= st.st_size;
  if (S_ISCHR(st.st_mode)) return st.st_rdev == makedev(1, 3);  // null(4)
  pollfd input{STDIN_FILENO, POLLIN, 0};
  int waiting = 0;
  return poll(&input, 1, 0) > 0 && (input.revents & (POLLHUP | POLLIN)) != 0 &&
         ioctl(STDIN_FILENO, FIONREAD, &waiting) == 0 && waiting == 0;
}

void check_input(Findings& findings) {
  const bool has_keyboard = settings.mode != kDaemon && settings.mode != kStop;
  if (has_keyboard && settings.mode != kTrashJournal && input_is_at_end())
    findings.warn("input",
                  "standard input is at its end, which stops the run like the escape key: "
                  "keep it open, or use the daemon (-m:2)");
}
