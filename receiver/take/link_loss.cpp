#include "receiver/take/link_loss.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr double kFastest = 5e6;        // datagrams/s; one process sends far fewer
constexpr double kBetweenLooks = 10;    // s
constexpr double kClockIsCoarse = 1.0;  // s; a batch of datagrams has one time

}  // namespace

void LinkLoss::datagram(std::uint64_t source) {
  const auto found = sources_.find(source);
  if (found == sources_.end()) return;
  for (Mark* mark : {&found->second.last, &found->second.doubted}) ++mark->came;
}

void LinkLoss::service(std::uint64_t source, std::uint64_t all_send_cnt, double now) {
  const auto found = sources_.find(source);
  if (found == sources_.end()) {
    if (has_place_for_another(now)) sources_[source] = {{all_send_cnt, 0, now}, {}, {}, 0, now};
    return;
  }
  Source& s = found->second;
  s.heard = now;
  if (all_send_cnt == s.last.count) return;  // it came twice
  const bool follows = goes_on(s.last, all_send_cnt, now);
  const bool ordinary = follows && all_send_cnt - s.last.count <= 2 * s.last.came;
  if (!ordinary) {
    doubt(s, all_send_cnt, now);
    if (s.in_a_row < kEnough) return;
  }
  add(follows ? s.last : s.doubted, all_send_cnt);
  s.last = {all_send_cnt, 0, now};
  s.doubted = s.newest = {};
  s.in_a_row = 0;
}

bool LinkLoss::goes_on(const Mark& mark, std::uint64_t count, double now) {
  const double most = kFastest * (now - mark.at + kClockIsCoarse);
  return mark.count != 0 && count > mark.count && static_cast<double>(count - mark.count) <= most;
}

void LinkLoss::doubt(Source& s, std::uint64_t count, double now) {
  if (goes_on(s.newest, count, now)) {
    ++s.in_a_row;
  } else {
    s.doubted = {count, 0, now};
    s.in_a_row = 1;
  }
  s.newest = {count, 0, now};
}

void LinkLoss::add(const Mark& from, std::uint64_t count) {
  const std::uint64_t sent = count - from.count;
  sent_ += sent;
  lost_ += sent - std::min(sent, from.came);
}

/// Forged sources must not push out those that send, nor cost a look at all each time.
bool LinkLoss::has_place_for_another(double now) {
  if (sources_.size() < kMostSources) return true;
  if (now < next_look_) return false;
  next_look_ = now + kBetweenLooks;
  for (auto each = sources_.begin(); each != sources_.end();) {
    each = now - each->second.heard > kForgotten ? sources_.erase(each) : std::next(each);
  }
  return sources_.size() < kMostSources;
}
