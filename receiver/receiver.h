// receiver/receiver.h: puts datagrams together to files, and delivers each file or gives
// it up.
//
// It has no clock of its own: every call says what time it is. A datagram's time is when it
// was taken in, however long it waited for its turn.
#pragma once

#include <netinet/in.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "receiver/assemble/arrivals.h"
#include "receiver/assemble/contested.h"
#include "receiver/assemble/settled_transfers.h"
#include "receiver/assemble/stash.h"
#include "receiver/base/network.h"
#include "receiver/base/now.h"
#include "receiver/deliver/records.h"
#include "receiver/deliver/settlement.h"
#include "receiver/deliver/store.h"
#include "receiver/ledger/ledger.h"
#include "receiver/seals.h"
#include "receiver/take/datagram.h"
#include "receiver/take/intake.h"
#include "receiver/take/link_loss.h"
#include "receiver/tell/events.h"
#include "receiver/tell/metrics.h"
#include "receiver/tell/notices.h"

struct ReceiverSettings {
  std::string charset;                  ///< of file names
  std::string metrics;                  ///< path of the metrics file; empty: none
  std::vector<Network> allow;           ///< empty: everybody
  bool ignore_source = false;           ///< transfers are told apart by their ids alone
  bool drop_incomplete = false;         ///< rather than keep what came of an unfinished file
  double give_up = 60;                  ///< s without a packet
  double silence = 0;                   ///< s without a datagram before a warning; 0: none
  std::uint64_t max_file_size = 0;      ///< bytes; 0: no limit
  std::size_t max_transfers = 100'000;  ///< unfinished at a time
  SealSettings seals;
  std::size_t stash = 64 << 20;  ///< bytes for parts whose header packet did not come
};

class Receiver {
 public:
  /// Store, ledger and events are kept by the caller and must outlive it.
  Receiver(ReceiverSettings settings, Store& store, Ledger& ledger, Events& events, const Now& now);
  ~Receiver() = default;
  Receiver(const Receiver&) = delete;
  Receiver& operator=(const Receiver&) = delete;

  /// Returns "" when usable; else a text for the user, as for a bad file of trusted keys.
  const std::string& error() const { return seals_.error(); }

  /// Goes on with the transfers that an earlier run left unfinished.
  void resume(const Now& now);

  /// One datagram, taken in at `came`. Its bytes must stay until end_batch().
  void take(const unsigned char* bytes, std::size_t size, const sockaddr_in& from, const Now& came);

  /// Writes what was gathered and delivers what became complete, in that order.
  void end_batch();

  /// Does what is due by time: saves progress, writes metrics, tries again what could not be
  /// delivered, and notices silence. Also gives up unfinished files, as of the time `until`,
  /// up to which all that came was handed to take(). Call it several times a second.
  void tick(const Now& now, const Now& until, const IntakeCounts& intake);

  /// Writes the metrics file.
  void update_metrics(const IntakeCounts& intake);

  /// Tells the operator how things stand, and writes the metrics.
  void tell_state(const IntakeCounts& intake);

  /// Saves what is unfinished for the next run, and the metrics.
  void end(const IntakeCounts& intake);

  /// Files delivered in this run.
  std::uint64_t delivered() const { return metrics_.delivered; }

  /// The open folder of the metrics' file; -1 if there is none.
  int metrics_folder() const { return metrics_file_.folder(); }

 private:
  bool is_allowed(const sockaddr_in& from) const;
  void take_header(const HeaderPacket& header, const sockaddr_in& from);
  void take_part(const DataPacket& packet, const sockaddr_in& from);
  std::uint64_t source_of(const sockaddr_in& from) const;
  TransferKey key_of(std::uint64_t id, const sockaddr_in& from) const;
  TransferRecord announced(const HeaderPacket& header, const sockaddr_in& from) const;
  void touch(const TransferKey& key);
  void contest(Arrival& arrival, TransferRecord other);

  // receiver/begin.cpp
  void begin(const HeaderPacket* header, TransferRecord record,
             const std::optional<TransferRecord>& known);
  std::string reason_to_refuse(const TransferRecord& record) const;
  void refuse(TransferRecord record, const std::string& why);
  bool may_begin(TransferRecord record, const std::optional<TransferRecord>& known);
  void make_place(std::uint32_t address);
  void feed_from_stash(Arrival& arrival);

  // receiver/resume.cpp
  bool ledger_is_readable();
  void resume_one(TransferRecord record, const Now& now);
  void close_unfinished(TransferRecord record, bool has_part);

  // receiver/sealed.cpp
  void take_seal(const HeaderPacket& header, const sockaddr_in& from);
  void refuse_seal(const HeaderPacket& header, const sockaddr_in& from, const std::string& why);
  bool begin_sealed(const TransferKey& file, const sockaddr_in& from);
  bool was_delivered_before(const TransferRecord& record);
  void note_news_of(const TransferKey& key);
  void examine_the_quiet(const Now& until);
  bool settle_sealed(const TransferKey& file);
  void drop_seal(const TransferKey& file);
  void drop_seal_transfer(const TransferKey& seal);

  // receiver/settle.cpp: each of these may close the arrival, which is gone then
  void settle(Arrival& arrival);
  void settle_proved(Arrival& arrival, const std::optional<SealedAs>& sealed);
  void deliver(Arrival& arrival);
  void give_up(Arrival& arrival, const std::string& why);
  void close(const TransferKey& key);
  void remember(const TransferRecord& record);
  bool is_behind_another(const TransferKey& key, const std::string& path) const;
  void leave_queue(const TransferKey& key, const std::string& path);
  std::string why_unfinished(const Arrival& arrival) const;
  void give_up_the_silent(double until);
  void try_again();
  void save_progress(std::size_t most);

  const ReceiverSettings settings_;
  Store& store_;
  Ledger& ledger_;
  Events& events_;
  MetricsFile metrics_file_;
  Metrics metrics_;  ///< before settlement_, which counts in it
  Records records_;
  Settlement settlement_;
  LinkLoss link_loss_;
  Stash stash_;
  Arrivals arrivals_;
  std::vector<TransferKey> touched_;    ///< in this batch
  std::vector<TransferKey> completed_;  ///< in this batch, in the order of their last parts
  /// Files set aside though complete, by the path that they ask for: a later one of the
  /// same path must not be delivered before them.
  std::unordered_map<std::string, std::deque<TransferKey>> queues_;
  Seals seals_;
  std::unordered_map<TransferKey, double> to_examine_;  ///< files with news, since when
  SettledTransfers settled_;
  SettledTransfers refused_;  ///< until a header packet of theirs is taken
  Contested contested_;

  Now now_;  ///< of the last datagram or tick
  Notices notices_;
  double next_save_ = 0;
  double next_metrics_ = 0;
  std::uint64_t ignored_parts_ = 0;   ///< of settled transfers
  std::uint64_t unwanted_parts_ = 0;  ///< of transfers turned away
  bool damage_told_ = false;          ///< of the ledger
  TransferKey latest_;                ///< of the last transfer that packets came for
};
