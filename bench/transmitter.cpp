#include "bench/transmitter.h"

#include <fcntl.h>
#include <netinet/udp.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "bench/lab.h"
#include "send/seal.h"
#include "send/send_file.h"
#include "send/socket.h"
#include "state/settings.h"
#include "wire/wire_format.h"

namespace {

constexpr double kAfterHeader = 0.010;  // s

const sockaddr* generic(const sockaddr_in& at) { return reinterpret_cast<const sockaddr*>(&at); }

}  // namespace

Load make_load(const std::string& path, std::uint32_t datagram, std::uint64_t count) {
  Load load{path, datagram, count, count * part_size(datagram)};
  make_file(path, load.bytes);
  return load;
}

Transmitter::Transmitter(std::uint32_t datagram, double speed, std::uint16_t port,
                         const Behind& behind) {
  settings = Settings{};
  use_charset("UTF-8");
  settings.head_send = 1;
  settings.data_send = 1;
  settings.speed = speed;
  settings.udata_size = static_cast<int>(datagram);
  settings.seal = behind.seal;
  settings.repair = behind.repair;
  if (const std::string why = prepare_seals(); !why.empty()) fail(why);
  folder_.ip = "127.0.0.1";
  folder_.port = port;
  cur_folder = &folder_;
  if (send_open() != 0) fail("the sender's socket was refused");
}

Transmitter::~Transmitter() {
  send_close();
  cur_folder = nullptr;
}

double Transmitter::send(const std::string& file) {
  const double begin = now();
  if (SendFile(file, "", kKindFile) != kSent) fail("not sent: " + file);
  return now() - begin - kAfterHeader * (settings.seal ? 2 : 1);
}

double send_plainly(const Load& load, const sockaddr_in& to, bool headers) {
  const Fd out = open_sender();
  const Fd in(open(load.file.c_str(), O_RDONLY | O_CLOEXEC));
  std::vector<unsigned char> packet(load.datagram);
  const double begin = now();
  for (std::uint64_t part = 1; part <= load.count; ++part) {
    const ssize_t got = read(in.get(), packet.data() + kHeaderSize, packet.size() - kHeaderSize);
    if (got < 0) fail("can't read " + load.file);
    if (headers) put_header(packet.data(), 1, part, static_cast<std::uint32_t>(got));
    const std::size_t size = kHeaderSize + static_cast<std::size_t>(got);
    if (sendto(out.get(), packet.data(), size, 0, generic(to), sizeof to) < 0) fail("sendto");
  }
  return now() - begin;
}

double send_segmented(const Load& load, const sockaddr_in& to, bool reading) {
  constexpr std::uint64_t kMostSegments = 64;
  const Fd out = open_sender();
  const int segment = static_cast<int>(load.datagram);
  if (setsockopt(out.get(), SOL_UDP, UDP_SEGMENT, &segment, sizeof segment) != 0) {
    fail("this kernel has no segmented sends");
  }
  const std::uint64_t room = std::min<std::uint64_t>(kMostSegments, kMaxUdataSize / load.datagram);
  std::vector<unsigned char> packets(room * load.datagram);
  const Fd in(open(load.file.c_str(), O_RDONLY | O_CLOEXEC));
  const double begin = now();
  for (std::uint64_t sent = 0; sent < load.count;) {
    const std::uint64_t some = std::min(room, load.count - sent);
    const std::size_t size = some * load.datagram;
    if (reading && read(in.get(), packets.data(), size - some * kHeaderSize) < 0) fail("read");
    if (sendto(out.get(), packets.data(), size, 0, generic(to), sizeof to) < 0) fail("sendto");
    sent += some;
  }
  return now() - begin;
}
