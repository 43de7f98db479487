// receiver/link_loss.h: how many datagrams the line lost, by the counters that
// the senders' service packets carry.
//
// It holds where a sender sends to this receiver alone: its counter does not
// tell one receiver's datagrams from another's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>

class LinkLoss {
 public:
  /// Notes a datagram from the IPv4 address `source`.
  void datagram(std::uint32_t source);

  /// Notes that this datagram was a service packet that carries `all_send_cnt`.
  void service(std::uint32_t source, std::uint64_t all_send_cnt);

  /// Datagrams sent between the first and the last service packet of each
  /// sender, and those of them that did not come.
  std::uint64_t sent() const { return sent_; }
  std::uint64_t lost() const { return lost_; }

 private:
  static constexpr std::size_t kMostSources = 1024;
  struct Source {
    std::uint64_t last_count = 0;
    std::uint64_t came = 0;  ///< since the last service packet, it not included
  };
  std::unordered_map<std::uint32_t, Source> sources_;
  std::uint64_t sent_ = 0;
  std::uint64_t lost_ = 0;
};
