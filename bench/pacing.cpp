// Paced sending: when do datagrams arrive, by the kernel's stamps?
#include "send/pacing.h"

#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <iostream>

#include "bench/report.h"
#include "bench/tables.h"
#include "bench/transmitter.h"
#include "wire/wire_format.h"

namespace {

constexpr int kBuffer = 512 << 20;       // bytes; nobody reads before all is sent
constexpr std::uint64_t kMost = 20'000;  // datagrams a round
constexpr std::uint64_t kLeast = 20;

std::uint64_t exact_time() {
  std::timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000 +
         static_cast<std::uint64_t>(now.tv_nsec);
}

/// Nothing but spinning and sending the same memory.
void send_bare(const Load& load, const Sink& sink, std::uint64_t (*clock)()) {
  const Fd out = open_sender();
  const std::vector<unsigned char> packet(load.datagram, 1);
  std::uint64_t due = clock() + delay_target;
  for (std::uint64_t i = 0; i < load.count; ++i) {
    std::uint64_t now = clock();
    while (now < due) now = clock();
    due = now + delay_target;
    sendto(out.get(), packet.data(), packet.size(), 0,
           reinterpret_cast<const sockaddr*>(&sink.at()), sizeof sink.at());
  }
}

/// Arrival of the next data packet in ns since 1970; 0 if there is none. Only the first
/// transfer counts, whose id `id` is from then on: 0 before.
std::uint64_t next_arrival(const Sink& sink, std::uint64_t& id) {
  unsigned char header[kHeaderSize];
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(std::timespec))];
  while (true) {
    iovec place{header, sizeof header};
    msghdr message{};
    message.msg_iov = &place;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    if (recvmsg(sink.fd(), &message, MSG_DONTWAIT) < 0) return 0;
    if (get_le<std::uint64_t>(header + kPartNoAt) == 0) continue;
    if (id == 0) id = get_le<std::uint64_t>(header);
    if (get_le<std::uint64_t>(header) != id) continue;  // a seal
    std::timespec at{};
    const cmsghdr* const stamp = CMSG_FIRSTHDR(&message);
    if (stamp == nullptr || stamp->cmsg_type != SCM_TIMESTAMPNS) fail("no time stamps");
    std::memcpy(&at, CMSG_DATA(stamp), sizeof at);
    return static_cast<std::uint64_t>(at.tv_sec) * 1'000'000'000 +
           static_cast<std::uint64_t>(at.tv_nsec);
  }
}

struct Pace {
  Samples gaps{};   // ns
  Samples means{};  // ns, of each round
};

template <typename Send>
void observe(Pace& pace, const Load& load, Send send) {
  const Sink sink(kBuffer);
  const int on = 1;
  setsockopt(sink.fd(), SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on);
  rest(0.02);  // the kernel begins with the stamps a moment later
  send(sink);
  Samples gaps;
  std::uint64_t id = 0;
  std::uint64_t before = next_arrival(sink, id);
  for (std::uint64_t at = 0; (at = next_arrival(sink, id)) != 0; before = at) {
    gaps.add(static_cast<double>(at) - static_cast<double>(before));
  }
  if (gaps.size() + 1 != load.count) fail("datagrams were lost on the way to the stamps");
  pace.means.add(gaps.mean());
  pace.gaps.add(gaps);
}

struct Setting {
  double speed;  // Mbit/s
  std::uint32_t datagram;
  std::uint64_t interval;  // ns
};

/// The interval as the program's clock can keep it.
double in_steps(std::uint64_t interval) {
  constexpr std::uint64_t kStep = 256;  // of a double near 1.7e18
  const std::uint64_t steps = (interval + kStep - 1) / kStep;
  return static_cast<double>(steps * kStep);
}

struct Result {
  Setting setting;
  Pace tarnwick{}, sealed{}, same_clock{}, exact_clock{};
};

void measure(Result& result, const Extent& extent) {
  const auto [speed, datagram, interval] = result.setting;
  const auto span = extent.of<std::uint64_t>(800'000'000, 200'000'000);  // ns
  const std::uint64_t count = std::clamp(span / interval, kLeast, kMost);
  const WorkFolder work;
  const Load load = make_load(work.path("load"), datagram, count);
  const auto send = [&](const Sink& sink, const Behind& behind) {
    Transmitter transmitter(load.datagram, result.setting.speed, sink.port(), behind);
    transmitter.send(load.file);
  };
  for (int round = 0; round < extent.of(5, 2); ++round) {
    observe(result.tarnwick, load, [&](const Sink& sink) { send(sink, {}); });
#ifdef SEAL
    observe(result.sealed, load, [&](const Sink& sink) { send(sink, {true, "5"}); });
#endif
    observe(result.same_clock, load, [&](const Sink& sink) { send_bare(load, sink, GetNanoTime); });
    observe(result.exact_clock, load, [&](const Sink& sink) { send_bare(load, sink, exact_time); });
  }
}

std::string percent_over(double gap, std::uint64_t interval) {
  return number(100 * (gap / static_cast<double>(interval) - 1), 2);
}

void print(const std::vector<Result>& results) {
  Table gaps({"Mbit/s", "bytes", "interval ns", "clock %", "least %", "p1 %", "median %", "p99 %",
              "max %", "reached Mbit/s", "gaps"});
  Table means({"Mbit/s", "bytes", "mean over bare loop %", "over one with an exact clock %",
               "with a seal over without %", "bare least %", "bare p1 %", "bare median %",
               "bare p99 %", "bare max %"});
  for (const Result& result : results) {
    const auto [speed, datagram, interval] = result.setting;
    const auto over = [i = interval](double gap) { return percent_over(gap, i); };
    const Samples& g = result.tarnwick.gaps;
    gaps.row({number(speed, 0), std::to_string(datagram), std::to_string(interval),
              over(in_steps(interval)), over(g.least()), over(g.percentile(0.01)), over(g.median()),
              over(g.percentile(0.99)), over(g.most()),
              number(speed * static_cast<double>(interval) / g.mean(), 2),
              std::to_string(g.size())});
    const auto excess = [](const Pace& pace, const Pace& bare) {
      Samples percent;
      if (pace.means.empty()) return spread(percent, 2);
      const Samples rounds = ratios(pace.means, bare.means);
      for (std::size_t i = 0; i < rounds.size(); ++i) percent.add(100 * (rounds[i] - 1));
      return spread(percent, 2);
    };
    const Samples& b = result.same_clock.gaps;
    means.row({number(speed, 0), std::to_string(datagram),
               excess(result.tarnwick, result.same_clock),
               excess(result.tarnwick, result.exact_clock), excess(result.sealed, result.tarnwick),
               over(b.least()), over(b.percentile(0.01)), over(b.median()),
               over(b.percentile(0.99)), over(b.most())});
  }
  gaps.print();
  means.print();
}

}  // namespace

void measure_pacing(const Extent& extent) {
  std::cout << "## Pacing\n\n"
            << "Gaps between data packets as they arrive, in % over (-: under) the interval. "
            << "'clock': the interval rounded up to the steps of the program's clock.\n\n";
  std::vector<Result> results;
  for (const double speed : {10.0, 95.0, 500.0, 950.0}) {
    for (const std::uint32_t datagram : {1400U, 8192U, 61440U}) {
      results.push_back({{speed, datagram, to_delay(packet_interval(datagram, speed))}});
      measure(results.back(), extent);
    }
  }
  print(results);
}
