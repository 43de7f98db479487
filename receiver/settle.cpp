// How a transfer ends, or waits for its end.
#include <algorithm>
#include <cstring>
#include <utility>

#include "receiver/base/names.h"
#include "receiver/receiver.h"

namespace {

constexpr double kBetweenTries = 5;  // s
constexpr double kLeastRest = 0.1;   // s, in a work of many parts
constexpr int kMostTries = 32;       // files a tick: the batches wait for it
constexpr int kMostGivenUp = 500;    // files a tick

/// The path that it asks for.
std::string path_of(const Arrival& arrival) {
  const TransferRecord& record = arrival.counts();
  return joined_path(safe_folders(record.folder)) + safe_name(record.name);
}

}  // namespace

/// Delivers it if it is complete; what can't be is set aside.
void Receiver::settle(Arrival& arrival) {
  if (const auto file = seals_.file_of(arrival.key())) {
    (void)settle_sealed(*file);
  } else if (seals_.are_required()) {
    (void)settle_sealed(arrival.key());  // or it waits for its seal
  } else {
    settle_proved(arrival, {});
  }
}

void Receiver::settle_proved(Arrival& arrival, const std::optional<SealedAs>& sealed) {
  const TransferKey key = arrival.key();
  const double begun = Now::read().monotonic;
  const std::string path = queues_.empty() ? "" : path_of(arrival);
  const Settled settled = is_behind_another(key, path)
                              ? settlement_.wait(arrival, "an earlier file of this path waits, too")
                              : settlement_.deliver(arrival, now_, sealed);
  if (settled == Settled::kNotYet || settled == Settled::kGoesOn) {
    if (!arrivals_.is_aside(key)) queues_[path_of(arrival)].push_back(key);
    // as long again for the others, whatever the disk takes
    const double now = Now::read().monotonic;
    const double rest = std::max(kLeastRest, now - begun);
    arrivals_.set_aside(arrival,
                        settled == Settled::kGoesOn ? now + rest : now_.monotonic + kBetweenTries);
    return;
  }
  leave_queue(key, path);
  if (settled == Settled::kDelivered) remember(arrival.counts());
  close(key);
}

bool Receiver::is_behind_another(const TransferKey& key, const std::string& path) const {
  const auto found = queues_.find(path);
  return found != queues_.end() && found->second.front() != key;
}

void Receiver::leave_queue(const TransferKey& key, const std::string& path) {
  const auto found = queues_.find(path);
  if (found == queues_.end() || found->second.front() != key) return;
  found->second.pop_front();
  if (found->second.empty()) queues_.erase(found);
}

/// What can't even be kept stays where it is for a while, and goes on if more comes of it.
void Receiver::give_up(Arrival& arrival, const std::string& why) {
  const TransferKey key = arrival.key();
  if (seals_.file_of(key)) return drop_seal_transfer(key);
  if (settlement_.give_up(arrival, why, now_) == Settled::kNotYet) {
    arrivals_.set_aside(arrival, now_.monotonic + kBetweenTries);
  } else {
    close(key);
  }
}

void Receiver::close(const TransferKey& key) {
  drop_seal(key);
  store_.parts().close(key);
  arrivals_.erase(key);
}

void Receiver::remember(const TransferRecord& record) {
  (void)stash_.take(record.key);
  settled_.add(record.key, header_print(record));
}

std::string Receiver::why_unfinished(const Arrival& arrival) const {
  if (arrival.write_error() != 0) {
    return std::string("parts could not be written: ") + std::strerror(arrival.write_error());
  }
  if (arrival.is_complete()) return "no seal";
  return seals_.knows(arrival.key()) && !arrival.was_announced() ? "only its seal came"
                                                                 : "no more packets came";
}

void Receiver::give_up_the_silent(double until) {
  for (int given_up = 0; given_up < kMostGivenUp; ++given_up) {
    Arrival* arrival = arrivals_.most_silent();
    if (arrival == nullptr || until - arrival->last_seen() <= settings_.give_up) return;
    const TransferKey key = arrival->key();
    if (settle_sealed(key)) continue;
    arrival = arrivals_.find(key);
    give_up(*arrival, why_unfinished(*arrival));
  }
}

void Receiver::try_again() {
  for (int tries = 0; tries < kMostTries; ++tries) {
    Arrival* arrival = arrivals_.due(now_.monotonic);
    if (arrival == nullptr) return;
    arrival->is_complete() ? settle(*arrival) : give_up(*arrival, arrival->counts().why);
  }
}
