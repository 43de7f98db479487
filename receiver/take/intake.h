// receiver/take/intake.h: the thread that takes datagrams into memory. It does nothing
// else, so it never waits for a disk, a ledger or a console; a datagram that it does
// not fetch in time is gone.
//
//   Intake intake(sockets, memory);
//   for (;;) {
//     const Intake::Batch batch = intake.next(100ms);  // empty: nothing came
//     ...
//   }                                                  // its memory is free again
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ground/owners.h"
#include "receiver/take/backlog.h"
#include "receiver/take/socket.h"

/// All but `memory` count from the start of the process.
struct IntakeCounts {
  std::size_t memory = 0;               ///< bytes in use now
  std::uint64_t dropped_datagrams = 0;  ///< the memory was full
  std::uint64_t dropped_transfers = 0;  ///< the memory was full
  std::uint64_t kernel_drops = 0;       ///< as UdpSocket::kernel_drops(), of all sockets
};

class Intake {
 public:
  /// What next() returns. It releases its memory at its end, so it must go before the
  /// Intake does.
  class Batch {
   public:
    Batch(Intake& intake, std::vector<Taken> taken) : intake_(intake), taken_(std::move(taken)) {}
    ~Batch() { intake_.give_back(taken_); }
    Batch(const Batch&) = delete;
    Batch& operator=(const Batch&) = delete;

    bool empty() const { return taken_.empty(); }
    auto begin() const { return taken_.begin(); }
    auto end() const { return taken_.end(); }

   private:
    Intake& intake_;
    std::vector<Taken> taken_;
  };

  /// Starts the thread. It takes from `sockets`, which must outlive it, and holds up to
  /// `memory` bytes. All signals are left to the other threads.
  /// Transfers are told apart by transfer_key(). On failure error() tells.
  Intake(std::vector<UdpSocket>& sockets, std::size_t memory, bool ignore_source);
  ~Intake();
  Intake(const Intake&) = delete;
  Intake& operator=(const Intake&) = delete;

  /// "" when usable; else the text for the user.
  const std::string& error() const { return error_; }

  /// Returns the oldest datagrams that wait, in order of arrival; waits up to `patience` if
  /// there are none.
  Batch next(std::chrono::milliseconds patience);

  /// Takes what waits in the sockets and ends the thread; next() then returns what is
  /// left in memory. What comes meanwhile is taken, too, but a line that never rests does
  /// not keep it from ending.
  void finish();

  IntakeCounts counts() const;

  /// Returns the time up to which all that came was returned by next(): when the oldest
  /// datagram that waits came, or now.
  Now moment() const;

 private:
  void run();
  void take_what_waits();
  std::size_t sweep();
  bool rest();
  void keep(UdpSocket& socket, std::size_t number, const Message& message);
  std::unique_ptr<unsigned char[]> spare();
  void give_back(std::vector<Taken>& taken);

  std::vector<UdpSocket>& sockets_;
  const bool ignore_source_;
  Fd stop_;  ///< an eventfd(2): readable once finish() was called
  mutable std::mutex mutex_;
  std::condition_variable came_;
  std::condition_variable given_back_;
  Backlog backlog_;                                       ///< guarded by mutex_
  std::uint64_t kernel_drops_ = 0;                        ///< guarded by mutex_
  std::vector<Taken> fresh_;                              ///< of the thread: not yet in backlog_
  std::vector<std::unique_ptr<unsigned char[]>> spares_;  ///< of the thread: receive buffers
  std::vector<std::unique_ptr<unsigned char[]>> freed_;   ///< the same; guarded by mutex_
  std::string error_;
  std::thread thread_;
};
