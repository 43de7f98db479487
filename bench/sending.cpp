// Unpaced sending to a socket that doesn't read.
#include <sys/resource.h>

#include <cstdlib>
#include <functional>
#include <iostream>

#include "bench/peers.h"
#include "bench/report.h"
#include "bench/tables.h"
#include "bench/transmitter.h"
#include "send/segments.h"
#include "wire/wire_format.h"

namespace {

struct Contender {
  std::string name;
  std::function<std::optional<double>()> run;  // Gbit/s
  Samples gbits{};
};

double gbits(const Load& load, double seconds) {
  return static_cast<double>(load.count) * load.datagram * 8 / 1e9 / seconds;
}

double send_without_segments(const Load& load, const Sink& sink) {
  Child child(
      {find_program("env"), "TARNWICK_PLAIN_SENDS=1", fs::read_symlink("/proc/self/exe"),
       "--send-once", load.file, std::to_string(load.datagram), std::to_string(sink.port())},
      Child::Output::kRead);
  const double seconds = std::strtod(child.finish().c_str(), nullptr);
  if (seconds <= 0) fail("the copy of the bench did not send");
  return seconds;
}

void add_peers(std::vector<Contender>& contenders, const Load& load,
               std::vector<std::string>& notes) {
  for (const Peer& peer : peers()) {
    const std::string path = find_program(peer.program);
    if (path.empty()) {
      notes.push_back(std::string(peer.program) + " is not installed (Debian: " + peer.package +
                      ").");
    } else if (!peer.run(path, load)) {
      notes.push_back(std::string(peer.program) + " does not send datagrams of this size.");
    } else {
      const auto run = peer.run;
      contenders.push_back({peer.program, [path, run, &load] { return run(path, load); }});
      notes.push_back(std::string(peer.program) + ": far end is " + peer.far_end + ".");
    }
  }
}

void print(const std::vector<Contender>& contenders, const Load& load) {
  const Samples& plain = contenders[0].gbits;
  const Samples& ceiling = contenders[1].gbits;
  Table table({"sender", "Gbit/s", "packets/s", "of the plain loop", "of the ceiling"});
  for (const Contender& c : contenders) {
    const double packets = c.gbits.median() * 1e9 / 8 / load.datagram;
    table.row({c.name, spread(c.gbits, 2), number(packets, 0), spread(ratios(c.gbits, plain), 2),
               spread(ratios(c.gbits, ceiling), 2)});
  }
  table.print();
}

void measure_size(std::uint32_t datagram, std::uint64_t bytes, int rounds) {
  const WorkFolder work;
  const Load load = make_load(work.path("load"), datagram, bytes / part_size(datagram));
  const Sink sink;
  std::vector<Contender> contenders{
      {"plain loop", [&] { return gbits(load, send_plainly(load, sink.at(), false)); }},
      {"ceiling", [&] { return gbits(load, send_segmented(load, sink.at(), false)); }},
      {"ceiling, reading the file",
       [&] { return gbits(load, send_segmented(load, sink.at(), true)); }},
      {"Tarnwick",
       [&] {
         Transmitter transmitter(datagram, 0, sink.port());
         return gbits(load, transmitter.send(load.file));
       }},
      {"Tarnwick, plain sends", [&] { return gbits(load, send_without_segments(load, sink)); }}};
  std::vector<std::string> notes;
  add_peers(contenders, load, notes);
  for (int round = 0; round <= rounds; ++round) {  // the first one warms up
    for (Contender& c : contenders) {
      const std::optional<double> rate = c.run();
      if (!rate) fail(c.name + " failed, after it had worked");
      if (round > 0) c.gbits.add(*rate);
    }
  }
  std::cout << "Datagrams of " << datagram << " bytes, " << load.count << " a round, " << rounds
            << " rounds:\n\n";
  print(contenders, load);
  for (const std::string& note : notes) std::cout << note << "\n";
  std::cout << std::endl;
}

}  // namespace

void measure_sending(const Extent& extent) {
  std::cout << "## Unpaced sending\n\n";
  for (const std::uint32_t datagram : {1400U, 8192U, 61440U}) {
    const std::uint64_t bytes = std::uint64_t{1} << (datagram == 1400 ? 28 : 30);
    measure_size(datagram, extent.of(bytes, bytes / 4), extent.of(9, 3));
  }
  if (!segments_are_usable()) std::cout << "The kernel refused segmented sends.\n\n";
}

int send_once(const std::vector<std::string>& words) {
  const auto to_int = [](const std::string& text) {
    return std::strtoul(text.c_str(), nullptr, 10);
  };
  Behind behind;
  behind.seal = words.size() > 3;
  if (behind.seal) behind.repair = words[3];
  Transmitter transmitter(static_cast<std::uint32_t>(to_int(words[1])), 0,
                          static_cast<std::uint16_t>(to_int(words[2])), behind);
  const double processor = processor_seconds();
  const double seconds = transmitter.send(words[0]);
  rusage used{};
  getrusage(RUSAGE_SELF, &used);
  std::cout << seconds << " " << processor_seconds() - processor << " "
            << static_cast<double>(used.ru_maxrss) / 1024 << std::endl;
  return 0;
}
