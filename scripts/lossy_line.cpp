// lossy-line FROM TO PERCENT [BURST DOUBLED LATE]: a line on this machine that loses
// datagrams, doubles them and changes their order.
//
// What comes to UDP port FROM goes on to port TO of 127.0.0.1, but for PERCENT of all
// frames: the same ones each time for the same datagrams. With BURST a tenth of all frames
// is lost besides, about BURST of them one after another. DOUBLED percent of the datagrams
// go on twice. With LATE so many datagrams wait at a time, and which of them is next is left
// to chance. Ends with SIGTERM, and then says how many datagrams were lost.
#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <random>
#include <utility>
#include <vector>

#include "tests/receiver/relay.h"

namespace {

constexpr unsigned kSeed = 1;
constexpr int kBuffer = 8 << 20;  // bytes; what the system grants is enough for a paced sender

constexpr timeval kWait{0, 100'000};  // s, us; then SIGTERM is looked for

volatile std::sig_atomic_t ended = 0;

sockaddr_in endpoint(const char* port, in_addr_t host) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(host);
  address.sin_port = htons(static_cast<std::uint16_t>(std::strtoul(port, nullptr, 10)));
  return address;
}

using Datagram = std::vector<char>;

/// Sends datagrams on to `to`, each by chance before up to `late` that came before it.
class Exit {
 public:
  Exit(int sock, const sockaddr_in& to, std::size_t late) : sock_(sock), to_(to), late_(late) {}

  void take(Datagram datagram) {
    waiting_.push_back(std::move(datagram));
    while (waiting_.size() > late_) send_one();
  }

  void send_all() {
    while (!waiting_.empty()) send_one();
  }

 private:
  void send_one() {
    std::swap(waiting_[random_() % waiting_.size()], waiting_.back());
    const Datagram& next = waiting_.back();
    // one that is not taken is one more that is lost
    (void)sendto(sock_, next.data(), next.size(), 0, reinterpret_cast<const sockaddr*>(&to_),
                 sizeof(to_));
    waiting_.pop_back();
  }

  int sock_;
  sockaddr_in to_;
  std::size_t late_;
  std::vector<Datagram> waiting_;
  std::mt19937 random_{kSeed};
};

/// Which frames are lost.
Line line_of(double percent, double burst) {
  Line line;
  line.loss = percent / 100;
  if (burst > 0) {
    line.to_good = 1 / burst;
    line.to_bad = line.to_good / 9;  // a tenth of the time
  }
  return line;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4 && argc != 7) {
    std::cerr << "Usage: lossy-line FROM TO PERCENT [BURST DOUBLED LATE]\n";
    return 2;
  }
  const auto number = [=](int at) { return at < argc ? std::strtod(argv[at], nullptr) : 0; };
  const int sock = socket(AF_INET, SOCK_DGRAM, 0);
  (void)setsockopt(sock, SOL_SOCKET, SO_RCVBUF, &kBuffer, sizeof(kBuffer));
  const sockaddr_in from = endpoint(argv[1], INADDR_ANY);
  if (bind(sock, reinterpret_cast<const sockaddr*>(&from), sizeof(from)) != 0) {
    std::cerr << "lossy-line: port " << argv[1] << " can't be opened\n";
    return 1;
  }
  (void)setsockopt(sock, SOL_SOCKET, SO_RCVTIMEO, &kWait, sizeof(kWait));
  (void)std::signal(SIGTERM, [](int) { ended = 1; });
  std::cout << "ready" << std::endl;
  Relay relay(line_of(number(3), number(4)), kSeed);
  Exit exit(sock, endpoint(argv[2], INADDR_LOOPBACK), static_cast<std::size_t>(number(6)));
  std::mt19937 random(kSeed);
  std::uint64_t came = 0;
  std::uint64_t lost = 0;
  Datagram datagram(65536);
  while (ended == 0) {
    const ssize_t size = recv(sock, datagram.data(), datagram.size(), 0);
    if (size < 0) {  // nothing came
      exit.send_all();
      continue;
    }
    ++came;
    if (relay.pass(frames_of(static_cast<std::size_t>(size)))) {
      ++lost;
      continue;
    }
    const Datagram passed(datagram.begin(), datagram.begin() + size);
    exit.take(passed);
    if (random() % 10'000 < number(5) * 100) exit.take(passed);
  }
  close(sock);
  std::cout << "The line lost " << lost << " of " << came << " datagrams.\n";
}
