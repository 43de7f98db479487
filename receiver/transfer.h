// receiver/transfer.h: one file on its way in.
//
// The first valid header packet fixes size, part size and names. Parts that
// follow each other are gathered and written with one call; what is gathered
// points into the datagrams, so flush() comes before these are gone.
#pragma once

#include <sys/uio.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "receiver/datagram.h"
#include "receiver/fd.h"
#include "receiver/ranges.h"
#include "receiver/record.h"

class Transfer {
 public:
  /// A transfer just announced; `fd` is its growing file.
  Transfer(TransferRecord record, Fd fd);

  /// One that an earlier run began: record.missing holds what has not come.
  static Transfer resumed(TransferRecord record, Fd fd);

  /// A header packet of the transfer, the first one included: false if it says
  /// something else than the first.
  bool take_header(const HeaderPacket& header);

  /// Gathers a part; false, and nothing done, if it does not fit the file.
  bool take_part(const DataPacket& packet);

  /// Writes what was gathered. False if that failed, now or before, errno set:
  /// the file can't be finished.
  bool flush();

  bool is_complete() const { return missing_.empty(); }

  /// The record as it stands, with what is missing.
  const TransferRecord& record();

  /// The same without working out what is missing: for its counts and names.
  const TransferRecord& counts() const { return record_; }

  /// Notes the time of the last packet: monotonic, and since 1970; s.
  void seen(double monotonic, double real) {
    last_seen = monotonic;
    record_.last_packet = real;
    unsaved = true;
  }

  /// Parts missing among those up to the highest that came.
  std::uint64_t holes() const { return missing_.count() - (record_.parts - highest_); }

  int fd() const { return fd_.get(); }

  /// For the one who keeps the transfer: the time (monotonic, s) of its last
  /// packet, and whether it changed since it was last saved.
  double last_seen = 0;
  bool unsaved = true;

 private:
  std::uint64_t offset_of(std::uint64_t part_no) const;
  std::size_t length_of(std::uint64_t part_no) const;
  void note_pass(std::uint64_t part_no);
  bool write_run();
  bool are_all_missing(std::uint64_t first, std::uint64_t last) const;
  bool take_known_part(std::uint64_t part_no, const iovec& bytes);
  void count(std::vector<std::uint64_t>& per_pass, std::uint64_t parts);

  TransferRecord record_;
  Fd fd_;
  Ranges missing_;
  std::optional<std::pair<std::string, std::string>> names_;  ///< name and folder off the wire
  std::uint64_t run_first_ = 0;                               ///< number of the first gathered part
  std::vector<iovec> run_;  ///< the gathered parts, in order, without gaps
  int error_ = 0;           ///< errno of the first write that failed
  std::size_t pass_ = 0;
  std::uint64_t highest_in_pass_ = 0;
  std::uint64_t highest_ = 0;  ///< part that came in any pass
};

/// The record that a header packet begins. Names are converted to `charset`.
TransferRecord begin_record(const HeaderPacket& header, const std::string& charset,
                            const std::string& source, double now);
