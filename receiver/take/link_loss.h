// receiver/take/link_loss.h: how many datagrams the line lost, by the counters that
// the senders' service packets carry.
//
// A sender is known by its address and port: each run of it has a port of its own. A
// counter that goes back, or that tells of more loss than datagrams came, is believed
// when kEnough service packets in a row went on from it: one that is forged, or comes
// late, counts nothing. A counter that rises faster than a sender can send counts as a
// new one.
//
// It holds where a sender sends to this receiver alone: its counter does not
// tell one receiver's datagrams from another's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>

class LinkLoss {
 public:
  /// Notes a datagram from `source`: an address and a port, in any one number.
  void datagram(std::uint64_t source);

  /// Notes that this datagram was a service packet that carries `all_send_cnt`, at the
  /// time `now` (monotonic, s).
  void service(std::uint64_t source, std::uint64_t all_send_cnt, double now);

  /// Datagrams sent between the first and the last service packet of each
  /// sender, and those of them that did not come.
  std::uint64_t sent() const { return sent_; }
  std::uint64_t lost() const { return lost_; }

  static constexpr int kEnough = 3;
  static constexpr std::size_t kMostSources = 1024;
  static constexpr double kForgotten = 3600;  ///< s without a service packet, where places lack

 private:
  /// A service packet to count on from.
  struct Mark {
    std::uint64_t count = 0;  ///< what it carried; 0: there is none
    std::uint64_t came = 0;   ///< datagrams since, it not included
    double at = 0;
  };
  struct Source {
    Mark last;
    Mark doubted;      ///< the first one that did not go on from `last`
    Mark newest;       ///< the last one that went on from `doubted`
    int in_a_row = 0;  ///< from `doubted` to `newest`
    double heard = 0;  ///< the last service packet
  };
  static bool goes_on(const Mark& mark, std::uint64_t count, double now);
  static void doubt(Source& s, std::uint64_t count, double now);
  void add(const Mark& from, std::uint64_t count);
  bool has_place_for_another(double now);

  std::unordered_map<std::uint64_t, Source> sources_;
  double next_look_ = 0;  ///< for places of senders that are silent
  std::uint64_t sent_ = 0;
  std::uint64_t lost_ = 0;
};
