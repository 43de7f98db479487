// receiver/receiver.h: puts datagrams together to files and settles what becomes
// of each.
#pragma once

#include <netinet/in.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "receiver/datagram.h"
#include "receiver/events.h"
#include "receiver/ledger.h"
#include "receiver/link_loss.h"
#include "receiver/metrics.h"
#include "receiver/notices.h"
#include "receiver/options.h"
#include "receiver/settled_ids.h"
#include "receiver/settlement.h"
#include "receiver/stash.h"
#include "receiver/store.h"
#include "receiver/transfer.h"

class Receiver {
 public:
  /// All are kept by the caller and must outlive it.
  Receiver(const Options& options, Store& store, Ledger& ledger, Events& events);
  ~Receiver() = default;
  Receiver(const Receiver&) = delete;
  Receiver& operator=(const Receiver&) = delete;

  /// Goes on with the transfers that an earlier run left unfinished.
  void resume();

  /// One datagram. Its bytes must stay until end_batch().
  void take(const unsigned char* bytes, std::size_t size, const sockaddr_in& from);

  /// Writes what was gathered and delivers what became complete.
  void end_batch();

  /// What is due by time: unfinished files given up, progress saved, metrics
  /// written, silence noticed. To be called several times a second.
  void tick(std::uint64_t kernel_drops);

  /// Saves what is unfinished for the next run, and the metrics.
  void end(std::uint64_t kernel_drops);

  /// Files delivered in this run.
  std::uint64_t delivered() const { return metrics_.delivered; }

 private:
  using Transfers = std::unordered_map<std::uint64_t, Transfer>;

  void look_at_clocks();
  bool is_allowed(const sockaddr_in& from) const;
  void take_header(const HeaderPacket& header, const sockaddr_in& from);
  void take_part(const DataPacket& packet);
  void touch(std::uint64_t id);
  void begin(const HeaderPacket& header, const sockaddr_in& from);
  std::string reason_to_refuse(const HeaderPacket& header) const;
  std::uint64_t bytes_on_their_way() const;
  void feed_from_stash(Transfer& transfer);
  bool ledger_is_readable();
  void resume_one(TransferRecord record);
  void close_unfinished(TransferRecord record, bool has_part);

  void settle(Transfer& transfer);
  void fail(Transfer& transfer, const std::string& why);
  void refuse(TransferRecord record, const std::string& why);
  void close(std::uint64_t id);
  void remember(std::uint64_t id);

  void give_up_the_silent(double now);
  void save_progress();
  void update_metrics(std::uint64_t kernel_drops);
  const Transfer* latest() const;

  const Options& options_;
  Store& store_;
  Ledger& ledger_;
  Events& events_;
  Metrics metrics_;  ///< before settlement_, which counts in it
  Settlement settlement_;
  LinkLoss link_loss_;
  Stash stash_;
  Transfers transfers_;
  std::vector<std::uint64_t> touched_;  ///< in this batch, in the order they came
  SettledIds settled_;

  double now_ = 0;   ///< monotonic, s; as of the last batch or tick
  double real_ = 0;  ///< since 1970, s; at the same time
  Notices notices_;
  double next_save_ = 0;
  double next_metrics_ = 0;
  std::uint64_t closed_repeated_ = 0;   ///< of transfers that are closed
  std::uint64_t closed_differing_ = 0;  ///< of transfers that are closed
  bool damage_told_ = false;            ///< of the ledger
  std::uint64_t latest_id_ = 0;         ///< of the last transfer that packets came for
};
