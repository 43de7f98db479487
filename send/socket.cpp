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
#include "softlib/system_log.h"
#include "state/console.h"
#include "state/settings.h"
#include "wire/wire_format.h"

int sock = -1;

namespace {

/// Forces the send buffer and returns its size as the kernel then reports it.
int force_send_buffer() {
  const int wanted = kSendBuffer;
  int granted = 0;
  socklen_t len = sizeof granted;
  int result = setsockopt(sock, SOL_SOCKET, SO_SNDBUFFORCE, &wanted, sizeof wanted);
  result += getsockopt(sock, SOL_SOCKET, SO_SNDBUF, &granted, &len);
  if (result != 0) {
    const int err = SockErrcode();  // before any output changes it
    err_system(std::string("can't force the send buffer, which needs CAP_NET_ADMIN: ") +
               std::strerror(err));
    say(1) << "Error in setsockopt(SO_SNDBUF) (returned " << result << std::endl;
    say(1) << "errorcode = " << err << "  : " << std::strerror(err);
    std::exit(1);
  }
  return granted;
}

/// The receiver may be a broadcast address.
void allow_broadcast() {
  const int on = 1;
  (void)setsockopt(sock, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);  // a failure shows at the send
}

/// Asks for the send buffer that the user wants. A send waits while the buffer is full.
void ask_for_send_buffer() {
  const int wanted = settings.send_buffer;
  int granted = 0;
  socklen_t len = sizeof granted;
  (void)setsockopt(sock, SOL_SOCKET, SO_SNDBUF, &wanted,
                   sizeof wanted);  // `granted` shows how much
  (void)getsockopt(sock, SOL_SOCKET, SO_SNDBUF, &granted, &len);
  granted /= 2;  // socket(7): the kernel reports twice as much
  if (granted < wanted) {
    say(1) << "send buffer: " << granted << " of " << wanted << " bytes granted" << std::endl;
  }
}

void set_pace() {
  const double interval =
      packet_interval(static_cast<std::uint32_t>(settings.udata_size), settings.speed);
  delay_target = to_delay(interval);
  say(1) << std::fixed << std::setprecision(6) << "speed " << settings.speed << " mBit\n";
  say(1) << std::setprecision(9) << "delay " << interval << " sec for evry packet\n";
}

}  // namespace

bool udata_size_is_valid() {
  const auto size = static_cast<std::uint32_t>(settings.udata_size);
  return size >= kMinUdataSize && size <= kMaxUdataSize;
}

int send_open() {
  if (!udata_size_is_valid()) {
    err_system("datagrams of " + std::to_string(settings.udata_size) +
               " bytes can't be sent: 1400 to 65507 can");
    std::cout << "Error MTU" << std::endl << "1400..65507";
    return -1;
  }
  sock = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (sock < 0) {
    err_system(std::string("can't open a socket: ") + std::strerror(errno));
    say(1) << "\nsocket error" << std::endl;
    std::exit(1);
  }
  say(2) << "\nsocket = " << sock << std::endl;
  allow_broadcast();
  if (settings.send_buffer > 0) {
    ask_for_send_buffer();
  } else if (force_send_buffer() < kSendBuffer) {
    err_system("the send buffer is smaller than it was forced to be");
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
    err_system("no address of a receiver: " + folder.ip);
    std::cerr << "inet_aton() failed\n";
    std::exit(1);
  }
  return to;
}
