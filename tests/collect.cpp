// A far side for the demo: writes what arrives on a UDP port into a folder.
//
//   collect PORT FOLDER [CHARSET]     until SIGINT
//
// It keeps no ledger and reports no loss; a complete file is one whose parts
// all came. Names are converted from the wire's code page to CHARSET, UTF-8 by
// default.
#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "send/code_page.h"
#include "send/wire_format.h"
#include "state/settings.h"

namespace fs = std::filesystem;

namespace {

volatile std::sig_atomic_t stopped = 0;

/// Where the parts of one transfer go once its header packet has come.
struct Incoming {
  std::fstream file;
  std::uint32_t part = 0;
};

class Collector {
 public:
  explicit Collector(fs::path folder) : folder_(std::move(folder)) {}

  void take(const unsigned char* packet, std::size_t size) {
    if (size < kHeaderSize) return;
    const auto id = get_le<std::uint64_t>(packet + kTransferIdAt);
    const auto part_no = get_le<std::uint64_t>(packet + kPartNoAt);
    if (id == kServiceId || (part_no == 0 && size < kNamesAt)) return;
    if (part_no == 0) {
      if (files_.count(id) == 0) begin(files_[id], packet, size);
    } else if (const auto found = files_.find(id); found != files_.end()) {
      store(found->second, part_no, packet + kHeaderSize, size - kHeaderSize);
    }
  }

 private:
  void begin(Incoming& in, const unsigned char* packet, std::size_t size) {
    std::string names(reinterpret_cast<const char*>(packet) + kNamesAt, size - kNamesAt);
    std::string name = names.substr(0, names.find('\0'));
    std::string dir = names.substr(std::min(name.size() + 1, names.size()));
    (void)convert(name, name, SND_CP, true);
    (void)convert(dir, dir, SND_CP, true);
    const fs::path to = folder_ / fs::path("/" + dir).lexically_normal().relative_path();
    fs::create_directories(to);
    in.part = part_size(get_le<std::uint32_t>(packet + kUdataSizeAt));
    in.file.open(to / name, std::ios::out | std::ios::binary);
  }

  static void store(Incoming& in, std::uint64_t part_no, const unsigned char* data,
                    std::size_t len) {
    in.file.seekp(static_cast<std::streamoff>((part_no - 1) * in.part));
    in.file.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(len));
    in.file.flush();
  }

  fs::path folder_;
  std::map<std::uint64_t, Incoming> files_;
};

int open_port(std::uint16_t port) {
  const int sock = socket(AF_INET, SOCK_DGRAM, 0);
  const int buffer = 64 * 1024 * 1024;
  if (setsockopt(sock, SOL_SOCKET, SO_RCVBUFFORCE, &buffer, sizeof buffer) != 0) {
    (void)setsockopt(sock, SOL_SOCKET, SO_RCVBUF, &buffer, sizeof buffer);
  }
  sockaddr_in at{};
  at.sin_family = AF_INET;
  at.sin_port = htons(port);
  at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return bind(sock, reinterpret_cast<const sockaddr*>(&at), sizeof at) == 0 ? sock : -1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  settings.lcs = argc > 3 ? argv[3] : "UTF-8";
  const int sock = open_port(static_cast<std::uint16_t>(std::atoi(argv[1])));
  if (sock < 0) {
    std::cerr << "collect: port " << argv[1] << " is taken\n";
    return 1;
  }
  struct sigaction on_stop {};
  on_stop.sa_handler = [](int) { stopped = 1; };
  sigaction(SIGINT, &on_stop, nullptr);  // without SA_RESTART: recv() returns
  const timeval wait{0, 200'000};
  setsockopt(sock, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);

  Collector collector(argv[2]);
  std::vector<unsigned char> packet(65536);
  for (;;) {
    const ssize_t size = recv(sock, packet.data(), packet.size(), 0);
    if (size >= 0) {
      collector.take(packet.data(), static_cast<std::size_t>(size));
    } else if (stopped != 0) {
      break;  // nothing waits any more
    }
  }
  close(sock);
  return 0;
}
