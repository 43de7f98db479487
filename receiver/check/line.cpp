#include <poll.h>
#include <sys/socket.h>

#include <chrono>
#include <cmath>
#include <fstream>
#include <iomanip>
#include <map>
#include <optional>
#include <sstream>

#include "receiver/check/check.h"
#include "receiver/take/socket.h"

namespace {

constexpr char kAbout[] = "line";
constexpr double kBitsPerMegabit = 1'048'576;  // as the sender's -s counts
constexpr int kFrameRoom = 1472;               // payload of one frame of 1,500 bytes
constexpr int kFragmentRoom = 1480;            // RFC 791

// A thread that the kernel wakes late, on a machine with other work, is late by some ten
// milliseconds; this is ten times as much.
constexpr double kNeededMs = 100;

std::optional<double> kernel_setting(const std::string& name) {
  std::ifstream file("/proc/sys/net/" + name);
  double value = 0;
  if (file >> value) return value;
  return std::nullopt;
}

std::string rounded(double value, int digits = 0) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(digits) << value;
  return text.str();
}

int fragments_of(int size) {
  return size <= kFrameRoom ? 1 : (size + 8 + kFragmentRoom - 1) / kFragmentRoom;
}

double bytes_per_second(double rate) { return rate * kBitsPerMegabit / 8; }

void check_buffer(const UdpSocket& socket, const std::string& at, double rate, Findings& findings) {
  int granted = 0;
  socklen_t len = sizeof granted;
  if (getsockopt(socket.fd(), SOL_SOCKET, SO_RCVBUF, &granted, &len) != 0) return;
  const double bytes = granted / 2.0;  // socket(7): the kernel doubles it
  if (rate <= 0) {
    if (!socket.warning().empty()) findings.note(kAbout, at + ": " + socket.warning());
    return;
  }
  const double held = milliseconds_held(bytes, rate);
  if (held >= kNeededMs) return;
  const double needed = std::ceil(bytes_per_second(rate) * kNeededMs / 1000);
  findings.warn(kAbout, at + ": the receive buffer of " + rounded(bytes) + " bytes holds " +
                            rounded(held) + " ms of " + rounded(rate) + " Mbit/s; " +
                            rounded(kNeededMs) +
                            " ms are wanted, for when the machine is busy: "
                            "sysctl -w net.core.rmem_max=" +
                            rounded(needed));
}

void check_fragments(const CheckOptions& wanted, Findings& findings) {
  if (wanted.rate <= 0 || fragments_of(wanted.datagram) == 1) return;
  const auto room = kernel_setting("ipv4/ipfrag_high_thresh");
  const auto time = kernel_setting("ipv4/ipfrag_time");
  if (!room || !time) return;
  const double waiting = fragments_waiting(wanted.rate, wanted.datagram, *time);
  if (waiting <= *room) return;
  findings.warn(kAbout,
                "datagrams of " + std::to_string(wanted.datagram) + " bytes come in " +
                    std::to_string(fragments_of(wanted.datagram)) +
                    " fragments. Where one frame in a hundred is lost, " + rounded(waiting) +
                    " bytes of the others wait, and net.ipv4.ipfrag_high_thresh has room for " +
                    rounded(*room) +
                    "; then whole datagrams are lost, too. Send smaller ones "
                    "(-t:1400), or: sysctl -w net.ipv4.ipfrag_time=1 "
                    "net.ipv4.ipfrag_high_thresh=" +
                    rounded(std::max(*room, fragments_waiting(wanted.rate, wanted.datagram, 1))));
}

/// A counter of /proc/net/snmp (proc(5)); 0 if there is none.
double counter(const std::string& group, const std::string& name) {
  std::ifstream file("/proc/net/snmp");
  std::string names;
  std::string values;
  while (std::getline(file, names) && std::getline(file, values)) {
    std::istringstream name_words(names);
    std::istringstream value_words(values);
    std::string word;
    std::string value;
    name_words >> word;
    value_words >> value;
    if (word != group + ":") continue;
    while (name_words >> word && value_words >> value) {
      if (word == name) return std::stod(value);
    }
  }
  return 0;
}

/// What the kernel counts of datagrams that reach the machine and no receiver.
std::map<std::string, double> lost_counters() {
  return {{"came to ports at which nobody listens", counter("Udp", "NoPorts")},
          {"could not be put together from their fragments", counter("Ip", "ReasmFails")},
          {"found the buffer full", counter("Udp", "RcvbufErrors")},
          {"had a wrong checksum", counter("Udp", "InCsumErrors")}};
}

std::size_t wait_for_datagrams(std::vector<UdpSocket>& sockets, double seconds) {
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::duration<double>(seconds);
  std::vector<pollfd> ready;
  ready.reserve(sockets.size());
  for (const UdpSocket& socket : sockets) ready.push_back({socket.fd(), POLLIN, 0});
  std::size_t came = 0;
  while (came == 0 && Clock::now() < end) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
    (void)poll(ready.data(), ready.size(), static_cast<int>(left.count()) + 1);
    for (UdpSocket& socket : sockets) came += socket.receive().size();
  }
  return came;
}

void check_arrivals(std::vector<UdpSocket>& sockets, double seconds, Findings& findings) {
  const auto before = lost_counters();
  if (wait_for_datagrams(sockets, seconds) > 0) {
    findings.note(kAbout, "datagrams come in");
    return;
  }
  findings.warn(kAbout, "nothing came within " + rounded(seconds, 1) +
                            " s. Does the sender run, and to this address and port? Does the "
                            "firewall let the port in (nft list ruleset, iptables -L -v)? Is "
                            "there a route back to the sender's address, which rp_filter asks for "
                            "(sysctl -a -r rp_filter)?");
  for (const auto& [what, now] : lost_counters()) {
    if (now > before.at(what))
      findings.warn(kAbout, "meanwhile " + rounded(now - before.at(what)) + " datagrams " + what);
  }
}

}  // namespace

double milliseconds_held(double bytes, double rate) {
  return 1000 * bytes / bytes_per_second(rate);
}

double fragments_waiting(double rate, int size, double seconds) {
  const double incomplete = 1 - std::pow(0.99, fragments_of(size));
  return bytes_per_second(rate) * incomplete * seconds;
}

void check_line(const Options& options, Findings& findings) {
  std::vector<UdpSocket> sockets;
  for (std::size_t i = 0; i < options.at.size(); ++i) {
    UdpSocket& socket = sockets.emplace_back(options.at[i]);
    for (const ip_mreqn& group : options.groups) socket.join(group);
    if (!socket.error().empty()) {
      findings.stop(kAbout, options.listen[i] + ": " + socket.error());
      sockets.pop_back();
      continue;
    }
    check_buffer(socket, options.listen[i], options.check_options.rate, findings);
  }
  check_fragments(options.check_options, findings);
  if (options.check_options.wait > 0 && !sockets.empty())
    check_arrivals(sockets, options.check_options.wait, findings);
}
