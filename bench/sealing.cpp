// What a seal costs an unpaced sender, and what its digest alone would cost.
#include <iostream>

#include "bench/report.h"
#include "bench/tables.h"

#ifdef SEAL

#include <fcntl.h>
#include <unistd.h>

#include <functional>
#include <sstream>

#include "bench/transmitter.h"
#include "seal/digest.h"
#include "wire/wire_format.h"

namespace {

constexpr std::uint32_t kDatagram = 1400;

/// What a sender took for the whole file, seal included.
struct Cost {
  double seconds = 0;
  double processor = 0;  ///< seconds of it that the sender's thread ran
  double mib = 0;        ///< the most memory (RSS) that it held
};

struct Way {
  std::string name;
  std::function<Cost()> run;
  Samples seconds{}, processor{}, mib{};
};

/// A copy of the bench sends the file, so that nothing but that is in its memory.
Cost send_with(const std::vector<std::string>& seal, const Load& load, const Sink& sink) {
  std::vector<std::string> command{fs::read_symlink("/proc/self/exe"), "--send-once", load.file,
                                   std::to_string(load.datagram), std::to_string(sink.port())};
  command.insert(command.end(), seal.begin(), seal.end());
  Child child(command, Child::Output::kRead);
  Cost cost;
  if (!(std::istringstream(child.finish()) >> cost.seconds >> cost.processor >> cost.mib)) {
    fail("the copy of the bench did not send");
  }
  return cost;
}

/// Reads the file as a sender does, and takes its digest.
Cost digest_only(const Load& load) {
  const Fd in(open(load.file.c_str(), O_RDONLY | O_CLOEXEC));
  std::vector<unsigned char> bytes(std::size_t{46} * part_size(kDatagram));
  ContentDigest digest;
  const double begin = now(), processor = processor_seconds();
  for (ssize_t got = 0; (got = read(in.get(), bytes.data(), bytes.size())) > 0;) {
    digest.add(bytes.data(), static_cast<std::size_t>(got));
  }
  (void)digest.finish();
  return {now() - begin, processor_seconds() - processor, 0};
}

}  // namespace

void measure_sealing(const Extent& extent) {
  const auto bytes = extent.of<std::uint64_t>(1 << 30, 256 << 20);
  const int rounds = extent.of(5, 3);
  const WorkFolder work;
  const Load load = make_load(work.path("load"), kDatagram, bytes / part_size(kDatagram));
  const Sink sink;
  std::vector<Way> ways{
      {"Tarnwick", [&] { return send_with({}, load, sink); }},
      {"Tarnwick, --seal", [&] { return send_with({""}, load, sink); }},
      {"Tarnwick, --repair=5", [&] { return send_with({"5"}, load, sink); }},
      {"reading and digest only", [&] { return digest_only(load); }},
  };
  for (int round = 0; round <= rounds; ++round) {  // the first one warms up
    for (Way& way : ways) {
      const Cost cost = way.run();
      if (round == 0) continue;
      way.seconds.add(cost.seconds);
      way.processor.add(cost.processor);
      way.mib.add(cost.mib);
    }
  }
  std::cout << "## Unpaced sending with a seal\n\n"
            << "A file of " << bytes / (1 << 20) << " MiB in datagrams of " << kDatagram
            << " bytes, one pass to a socket that doesn't read, " << rounds << " rounds.\n\n";
  const Way &bare = ways[0], &digest = ways[3];
  Table table(
      {"", "processor s", "of no seal", "of the digest alone", "goodput, no seal = 1", "RSS, MiB"});
  for (const Way& way : ways) {
    table.row({way.name, spread(way.processor, 2), spread(ratios(way.processor, bare.processor), 2),
               spread(ratios(way.processor, digest.processor), 2),
               spread(ratios(bare.seconds, way.seconds), 2),
               way.mib.most() > 0 ? number(way.mib.most(), 0) : "-"});
  }
  table.print();
}

#else

void measure_sealing(const Extent& /*extent*/) {
  std::cout << "## Unpaced sending with a seal\n\nThe seal is not built: its libraries are "
               "missing.\n\n";
}

#endif
