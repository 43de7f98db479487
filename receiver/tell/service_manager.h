// receiver/tell/service_manager.h: tells the service manager how the receiver is doing,
// by sd_notify(3): datagrams to the socket that NOTIFY_SOCKET names.
#pragma once

#include "ground/owners.h"

class ServiceManager {
 public:
  /// Opens the socket, before the sandbox; without one nothing is told. It never blocks.
  ServiceManager();

  void ready() const { tell("READY=1"); }
  void stopping() const { tell("STOPPING=1"); }

  /// Call it several times a second from the thread that must not hang; it feeds the
  /// watchdog (WatchdogSec, systemd.service(5)) twice in its time. `now` is monotonic, s.
  void alive(double now);

 private:
  void tell(const char* state) const;

  Fd socket_;
  double interval_ = 0;  ///< s; 0: no watchdog
  double next_ = 0;
};
