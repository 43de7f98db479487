#include "receiver/take/intake.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "ground/signals_held.h"
#include "receiver/base/now.h"
#include "wire/wire_format.h"

namespace {

constexpr std::size_t kBatchBytes = 1 << 20;  // for one look of the consumer
constexpr std::size_t kAhead = 4 << 20;
constexpr auto kRest = std::chrono::milliseconds(1);
constexpr std::size_t kMostFreed = 64;  // buffers kept to be filled again

std::uint64_t id_of(const unsigned char* datagram, std::size_t size) {
  return size < sizeof(std::uint64_t) ? 0 : get_le<std::uint64_t>(datagram + kTransferIdAt);
}

/// Bytes from `at` on, in whole datagrams, that belong to the transfer `id`.
std::size_t run_length(const Message& message, std::size_t at, std::uint64_t id) {
  std::size_t end = at;
  do {
    end = std::min(end + message.segment, message.size);
  } while (end < message.size && id_of(message.bytes + end, message.size - end) == id);
  return end - at;
}

}  // namespace

Intake::Intake(std::vector<UdpSocket>& sockets, std::size_t memory, bool ignore_source)
    : sockets_(sockets),
      ignore_source_(ignore_source),
      stop_(eventfd(0, EFD_CLOEXEC)),
      backlog_(memory) {
  if (!stop_) {
    error_ = std::string("eventfd: ") + std::strerror(errno);
    return;
  }
  const SignalsHeld in_the_new_thread;
  try {
    thread_ = std::thread([this] { run(); });
  } catch (const std::system_error& failed) {
    error_ = std::string("can't start a thread: ") + failed.what();
  }
}

Intake::~Intake() { finish(); }

void Intake::finish() {
  if (!thread_.joinable()) return;
  const std::uint64_t one = 1;
  (void)!write(stop_.get(), &one, sizeof one);  // an eventfd takes it (eventfd(2))
  thread_.join();
}

void Intake::run() {
  std::vector<pollfd> waits{{stop_.get(), POLLIN, 0}};
  for (const UdpSocket& socket : sockets_) waits.push_back({socket.fd(), POLLIN, 0});
  while (poll(waits.data(), waits.size(), -1) < 0 || waits[0].revents == 0) {
    while ((rest() || sweep() > 0) && poll(waits.data(), 1, 0) == 0) {
    }
  }
  take_what_waits();
}

/// Ends on a line that never rests, too.
void Intake::take_what_waits() {
  std::uint64_t left = 0;
  for (const UdpSocket& socket : sockets_) left += socket.waiting();
  while (left > 0) {
    const std::size_t taken = sweep();
    if (taken == 0) return;
    left -= std::min<std::uint64_t>(left, taken);
  }
}

/// True after a rest. What waits in the kernel's buffer, as long as that is far from full,
/// need not be in ours as well: a short way between the two threads stays in the
/// processor's cache.
bool Intake::rest() {
  const auto is_roomy = [](const UdpSocket& socket) { return socket.is_roomy(); };
  std::unique_lock<std::mutex> lock(mutex_);
  if (backlog_.bytes() <= kAhead || !std::all_of(sockets_.begin(), sockets_.end(), is_roomy)) {
    return false;
  }
  given_back_.wait_for(lock, kRest, [this] { return backlog_.bytes() < kAhead / 2; });
  return true;
}

/// Takes a batch from each socket. Returns its bytes, and one more for each message, which
/// may have none; 0 if no socket had any.
std::size_t Intake::sweep() {
  std::uint64_t drops = 0;
  std::size_t bytes = 0;
  for (UdpSocket& socket : sockets_) {
    std::size_t number = 0;
    for (const Message& message : socket.receive()) {
      keep(socket, number++, message);
      bytes += message.size + 1;
    }
    drops += socket.kernel_drops();
  }
  if (bytes == 0) return 0;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (Taken& taken : fresh_) backlog_.push(std::move(taken));
    kernel_drops_ = drops;
    if (spares_.empty()) spares_.swap(freed_);
  }
  came_.notify_one();
  fresh_.clear();
  return bytes;
}

/// Keeps the datagrams of each transfer by themselves: they may be dropped apart. What
/// fills most of its buffer stays in it; the rest is copied, to hold no memory unused.
void Intake::keep(UdpSocket& socket, std::size_t number, const Message& message) {
  const Now came = Now::read();
  std::size_t at = 0;
  do {
    Taken taken;
    const std::uint64_t id = id_of(message.bytes + at, message.size - at);
    taken.key = transfer_key(id, message.from, ignore_source_);
    taken.size = run_length(message, at, id);
    taken.segment = message.segment;
    taken.from = message.from;
    taken.came = came;
    if (taken.size == message.size && taken.size > kMessageRoom / 2) {
      taken.unused = kMessageRoom - taken.size;
      taken.bytes = socket.hand_over(number, spare());
    } else {
      taken.bytes.reset(new unsigned char[taken.size]);  // not cleared, as make_unique() would
      if (taken.size > 0) std::memcpy(taken.bytes.get(), message.bytes + at, taken.size);
    }
    at += taken.size;
    fresh_.push_back(std::move(taken));
  } while (at < message.size);
}

Intake::Batch Intake::next(std::chrono::milliseconds patience) {
  std::unique_lock<std::mutex> lock(mutex_);
  if (backlog_.empty()) came_.wait_for(lock, patience, [this] { return !backlog_.empty(); });
  return {*this, backlog_.pop(kBatchBytes)};
}

std::unique_ptr<unsigned char[]> Intake::spare() {
  if (spares_.empty()) {
    return std::unique_ptr<unsigned char[]>(new unsigned char[kMessageRoom]);  // not cleared
  }
  auto last = std::move(spares_.back());
  spares_.pop_back();
  return last;
}

void Intake::give_back(std::vector<Taken>& taken) {
  std::size_t cost = 0;
  for (const Taken& each : taken) cost += each.cost();
  const std::lock_guard<std::mutex> lock(mutex_);
  for (Taken& each : taken) {
    const bool is_whole_buffer = each.size + each.unused == kMessageRoom;
    if (is_whole_buffer && freed_.size() < kMostFreed) freed_.push_back(std::move(each.bytes));
  }
  backlog_.give_back(cost);
  if (backlog_.bytes() < kAhead / 2) given_back_.notify_one();
}

Now Intake::moment() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return backlog_.empty() ? Now::read() : backlog_.oldest();
}

IntakeCounts Intake::counts() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return {backlog_.bytes(), backlog_.dropped_datagrams(), backlog_.dropped_transfers(),
          kernel_drops_};
}
