#include "send/socket.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iomanip>
#include <iostream>

#include "send/pacing.h"
#include "send/wire_format.h"
#include "state/console.h"
#include "state/settings.h"

int sock = -1;

namespace {

constexpr int kSendBuffer = 16 * 1024 * 1024;  // bytes; Linux reports twice as much

bool udata_size_is_valid() {
  const auto size = static_cast<std::uint32_t>(settings.udata_size);
  return size >= kMinUdataSize && size <= kMaxUdataSize;
}

/// The size of the send buffer once forced, as the kernel reports it.
int force_send_buffer() {
  const int wanted = kSendBuffer;
  int granted = 0;
  socklen_t len = sizeof granted;
  int result = setsockopt(sock, SOL_SOCKET, SO_SNDBUFFORCE, &wanted, sizeof wanted);
  result += getsockopt(sock, SOL_SOCKET, SO_SNDBUF, &granted, &len);
  if (result != 0) {
    const int err = SockErrcode();  // before any output changes it
    say(1) << "Error in setsockopt(SO_SNDBUF) (returned " << result << std::endl;
    say(1) << "errorcode = " << err << "  : " << std::strerror(err);
    std::exit(1);
  }
  return granted;
}

void set_pace() {
  const double interval =
      packet_interval(static_cast<std::uint32_t>(settings.udata_size), settings.speed);
  delay_target = to_delay(interval);
  say(1) << std::fixed << std::setprecision(6) << "speed " << settings.speed << " mBit\n";
  say(1) << std::setprecision(9) << "delay " << interval << " sec for evry packet\n";
}

}  // namespace

int send_open() {
  if (!udata_size_is_valid()) {
    std::cout << "Error MTU" << std::endl << "1400..65507";
    return -1;
  }
  sock = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (sock < 0) {
    say(1) << "\nsocket error" << std::endl;
    std::exit(1);
  }
  say(2) << "\nsocket = " << sock << std::endl;
  if (force_send_buffer() < kSendBuffer) {
    say(1) << "Error: getsockopt not EQ setsockopt for SO_SNDBUF" << std::endl;
    return -1;
  }
  if (settings.speed != 0.0) set_pace();
  return 0;
}

void send_close() { CloseSocket(sock); }

void CloseSocket(int s) { close(s); }

int SockErrcode() { return errno; }

sockaddr_in receiver_address(const scan_folder& folder) {
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(static_cast<std::uint16_t>(folder.port));
  if (inet_aton(folder.ip.c_str(), &to.sin_addr) == 0) {
    std::cerr << "inet_aton() failed\n";
    std::exit(1);
  }
  return to;
}
