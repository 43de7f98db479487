#include "softlib/system_log.h"

#include <paths.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>

#include <cerrno>

#include "ground/owners.h"
#include "softlib/escape.h"

namespace {

constexpr int kMostWaitMs = 100;

std::string ident = "tarnwick";

/// True if the log has room for a message. syslog(3) does not ask: it waits for
/// as long as the log's queue is full, and a stuck log would hold up the run.
bool log_has_room() {
  const sockaddr_un at{AF_UNIX, _PATH_LOG};
  for (const int type : {SOCK_DGRAM, SOCK_STREAM}) {  // syslog(3) tries both, too
    const Fd probe(socket(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (connect(probe.get(), reinterpret_cast<const sockaddr*>(&at), sizeof at) != 0) continue;
    pollfd room{probe.get(), POLLOUT, 0};
    return poll(&room, 1, kMostWaitMs) > 0;
  }
  return false;
}

void say_to_system(int priority, const std::string& text) {
  const int err = errno;
  if (log_has_room()) {
    openlog(ident.c_str(), LOG_PID, LOG_DAEMON);
    syslog(priority, "%s", escape_controls(text).c_str());
    closelog();  // an open descriptor could take a number that another file must get
  }
  errno = err;
}

}  // namespace

void name_in_system_log(const std::string& program) { ident = program; }

void warn_system(const std::string& text) { say_to_system(LOG_WARNING, text); }

void err_system(const std::string& text) { say_to_system(LOG_ERR, text); }
