#include "receiver/tell/service_manager.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

std::string variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

/// Connected to `path`; "@..." is an abstract name (unix(7)).
Fd open_notify_socket(std::string path) {
  sockaddr_un to{AF_UNIX, {}};
  if (path.empty() || path.size() >= sizeof to.sun_path || (path[0] != '/' && path[0] != '@')) {
    return Fd();
  }
  if (path[0] == '@') path[0] = '\0';
  std::memcpy(to.sun_path, path.data(), path.size());
  Fd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
  if (!fd || connect(fd.get(), reinterpret_cast<const sockaddr*>(&to), size) != 0) return Fd();
  return fd;
}

}  // namespace

ServiceManager::ServiceManager() : socket_(open_notify_socket(variable("NOTIFY_SOCKET"))) {
  const std::string process = variable("WATCHDOG_PID");
  if (!process.empty() && process != std::to_string(getpid())) return;
  interval_ = std::strtod(variable("WATCHDOG_USEC").c_str(), nullptr) / 1e6 / 2;
}

void ServiceManager::alive(double now) {
  if (interval_ <= 0 || now < next_) return;
  next_ = now + interval_;
  tell("WATCHDOG=1");
}

void ServiceManager::tell(const char* state) const {
  if (socket_) (void)send(socket_.get(), state, std::strlen(state), MSG_NOSIGNAL);
}
