// From a sender to a receiver on the same machine: how much arrives, and whole?
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <thread>

#include "bench/report.h"
#include "bench/tables.h"
#include "bench/transmitter.h"
#include "send/seal.h"
#include "wire/wire_format.h"

namespace {

constexpr std::uint32_t kDatagram = 1400;
constexpr int kReceiveBuffer = 1 << 30;  // bytes, as the receiver's
constexpr double kPatience = 60;         // s

struct Pair {
  std::string name;
  Samples mbytes{};  // a second, of file contents that arrived
  Samples lost{};    // share of the datagrams
};

/// One recvfrom() and one pwrite() a datagram, until nothing came for a while.
struct PlainReceiver {
  void run(const Sink& sink, const std::string& file) {
    const Fd out(open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    const timeval silence{0, 500'000};
    setsockopt(sink.fd(), SOL_SOCKET, SO_RCVTIMEO, &silence, sizeof silence);
    unsigned char packet[kDatagram];
    for (ssize_t got = 0;
         (got = recvfrom(sink.fd(), packet, sizeof packet, 0, nullptr, nullptr)) > 0;) {
      const auto part = get_le<std::uint64_t>(packet + kPartNoAt);
      const auto at = static_cast<off_t>((part - 1) * part_size(kDatagram));
      const std::size_t len = static_cast<std::size_t>(got) - kHeaderSize;
      if (pwrite(out.get(), packet + kHeaderSize, len, at) < 0) fail("can't write " + file);
      bytes += len;
      ++count;
      last = now();
    }
  }

  std::uint64_t bytes = 0;
  std::uint64_t count = 0;
  double last = 0;
};

void run_plain(Pair& pair, const Load& load) {
  const WorkFolder work;
  const Sink sink(kReceiveBuffer);
  PlainReceiver receiver;
  std::thread receiving([&] { receiver.run(sink, work.path("arrived")); });
  const double begin = now();
  send_plainly(load, sink.at(), true);
  receiving.join();
  pair.mbytes.add(static_cast<double>(receiver.bytes) / 1e6 / (receiver.last - begin));
  pair.lost.add(1 - static_cast<double>(receiver.count) / static_cast<double>(load.count));
}

#ifdef RECEIVER
double metric(const std::string& file, const std::string& name) {
  const std::string begin = "tarnwick_receive_" + name + " ";
  std::ifstream metrics(file);
  for (std::string line; std::getline(metrics, line);) {
    if (line.rfind(begin, 0) == 0) return std::strtod(line.c_str() + begin.size(), nullptr);
  }
  fail("the receiver left no count of " + name);
}

void run_tarnwick(Pair& pair, const Load& load, const char* sync, const Behind& behind = {}) {
  constexpr double kAfterHeader = 0.010;  // s, prescribed
  constexpr double kDrained = 0.5;        // s after which the receiver has read all that came
  const WorkFolder work;
  const std::uint16_t port = Sink().port();
  std::vector<std::string> command{RECEIVER,
                                   "--into",
                                   work.path("in"),
                                   "--listen",
                                   "127.0.0.1:" + std::to_string(port),
                                   "--metrics",
                                   work.path("metrics"),
                                   "--give-up",
                                   "3"};
  if (*sync != '\0') command.emplace_back(sync);
  fs::create_directory(work.path("in"));
  Child receiver(command, Child::Output::kRead);
  if (receiver.read_line(kPatience).find(" listening") == std::string::npos)
    fail("the receiver does not start");
  Transmitter transmitter(load.datagram, 0, port, behind);
  const double begin = now() + kAfterHeader;
  transmitter.send(load.file);
  const std::string said = receiver.read_line(kPatience);
  const double seconds = now() - begin - (behind.seal ? kAfterHeader : 0);
  const bool delivered = said.find(" delivered ") != std::string::npos;
  pair.mbytes.add(delivered ? static_cast<double>(load.bytes) / 1e6 / seconds : 0);
  rest(kDrained);
  receiver.ask_to_end();
  receiver.finish();
  // not its count of drops: what was joined by then counts as one in it
  const double came = metric(work.path("metrics"), "datagrams_total");
  const std::uint64_t seal = behind.seal ? 1 + repair_parts(load.bytes) : 0;
  pair.lost.add(1 - came / static_cast<double>(load.count + 1 + seal));  // and the header packet
}
#endif

std::size_t whole(const Pair& pair) {
  std::size_t count = 0;
  for (std::size_t i = 0; i < pair.lost.size(); ++i) {
    if (pair.lost[i] <= 0 && pair.mbytes[i] > 0) ++count;
  }
  return count;
}

}  // namespace

void measure_goodput(const Extent& extent) {
  const std::uint64_t bytes = extent.of<std::uint64_t>(1 << 30, 128 << 20);
  const int rounds = extent.of(5, 3);
  const WorkFolder work;
  const Load load = make_load(work.path("load"), kDatagram, bytes / part_size(kDatagram));
  std::vector<Pair> pairs{{"plain sender, plain receiver"}};
#ifdef RECEIVER
  pairs.push_back({"Tarnwick, --no-sync"});
  pairs.push_back({"Tarnwick, synced"});
#ifdef SEAL
  pairs.push_back({"Tarnwick, --no-sync, --repair=5"});
#endif
#endif
  for (int round = 0; round < rounds; ++round) {
    run_plain(pairs[0], load);
#ifdef RECEIVER
    run_tarnwick(pairs[1], load, "--no-sync");
    run_tarnwick(pairs[2], load, "");
#ifdef SEAL
    run_tarnwick(pairs[3], load, "--no-sync", {true, "5"});
#endif
#endif
  }
  std::cout << "## Sender to receiver, unpaced, one pass\n\n"
            << "A file of " << bytes / (1 << 20) << " MiB in datagrams of " << kDatagram
            << " bytes, " << rounds
            << " rounds. A file that does not arrive whole counts as 0; the "
            << "plain receiver's rate is of what it got.\n\n";
  Table table({"pair", "MB/s", "of the plain pair", "lost %", "whole"});
  for (const Pair& pair : pairs) {
    Samples percent;
    for (std::size_t i = 0; i < pair.lost.size(); ++i) percent.add(100 * pair.lost[i]);
    table.row({pair.name, spread(pair.mbytes, 0), spread(ratios(pair.mbytes, pairs[0].mbytes), 2),
               spread(percent, 3), std::to_string(whole(pair)) + " of " + std::to_string(rounds)});
  }
  table.print();
#ifndef RECEIVER
  std::cout << "The receiver is not built: its libraries are missing.\n\n";
#endif
}
