// receiver/assemble/arrival.h: one file on its way in.
//
// The first valid header packet fixes size, part size and names. Parts that
// follow each other are gathered and written with one call; what is gathered
// points into the datagrams, so flush() comes before these are gone.
#pragma once

#include <sys/uio.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "receiver/assemble/part_files.h"
#include "receiver/base/now.h"
#include "receiver/base/ranges.h"
#include "receiver/base/record.h"
#include "receiver/take/datagram.h"

class Arrival {
 public:
  /// Begins a transfer whose bytes go to one of `files`, which must outlive it. The file is
  /// made when the first part is written.
  Arrival(TransferRecord record, PartFiles& files);

  /// Goes on with a transfer that an earlier run began. record.missing holds the parts that
  /// have not come.
  static Arrival resumed(TransferRecord record, PartFiles& files);

  /// Takes a header packet of the transfer, the first one included. Returns false if it
  /// differs from the first one.
  bool take_header(const HeaderPacket& header);

  /// Gathers a part. Returns false, with nothing done, if it does not fit the file. The last
  /// missing part is written at once, so that is_complete() becomes true.
  bool take_part(const DataPacket& packet);

  /// Writes what was gathered. What can't be written stays missing, for a later pass:
  /// see failed_parts().
  void flush();

  bool is_complete() const { return missing_.empty(); }

  /// True if a header packet of its own came in this run.
  bool was_announced() const { return names_.has_value(); }

  /// Returns the numbers of the parts that have not come.
  const Ranges& missing() const { return missing_; }

  /// Notes that these parts, all of them missing, were rebuilt and written.
  void note_rebuilt(const std::vector<std::uint64_t>& parts);

  /// Notes the text of the seal's record, which is believed.
  void note_seal(const std::string& text) { record_.seal = text; }

  /// Notes how the content was proved.
  void note_proof(const std::string& proof) { record_.proof = proof; }

  /// Returns the present record, missing parts included.
  TransferRecord record() const;

  /// Returns the present record without `missing`, which takes time to work out.
  const TransferRecord& counts() const { return record_; }
  const TransferKey& key() const { return record_.key; }

  /// Notes the time of the last packet.
  void seen(const Now& now) {
    last_seen_ = now.monotonic;
    record_.last_packet = now.real;
  }
  /// Sets when the last packet came in an earlier run, as a monotonic time (s) of this run.
  void seen_before(double monotonic) { last_seen_ = monotonic; }
  double last_seen() const { return last_seen_; }

  /// Takes over the record as an attempt of Settlement left it.
  void note_attempt(const TransferRecord& attempted);

  /// Returns how many parts are missing below the highest one that came.
  std::uint64_t holes() const { return missing_.count() - (record_.parts - highest_); }

  /// Return how many parts came and could not be written, and the errno of the last failure
  /// (0: none).
  std::uint64_t failed_parts() const { return failed_parts_; }
  int write_error() const { return error_; }

 private:
  std::uint64_t offset_of(std::uint64_t part_no) const;
  std::size_t length_of(std::uint64_t part_no) const;
  void note_pass(std::uint64_t part_no);
  bool write_run(int fd);
  bool write_new(int fd, const std::vector<iovec>& parts, std::uint64_t first);
  bool are_all_missing(std::uint64_t first, std::uint64_t last) const;
  bool take_known_part(int fd, std::uint64_t part_no, const iovec& bytes);
  void count(std::vector<std::uint64_t>& per_pass, std::uint64_t parts);

  TransferRecord record_;  ///< all but its `missing`
  PartFiles* files_;
  Ranges missing_;
  std::optional<std::size_t> names_;  ///< a hash of name and folder off the wire
  std::uint64_t run_first_ = 0;       ///< number of the first gathered part
  std::vector<iovec> run_;            ///< the gathered parts, in order, without gaps
  int error_ = 0;
  std::uint64_t failed_parts_ = 0;
  double last_seen_ = 0;
  std::size_t pass_ = 0;
  std::uint64_t highest_in_pass_ = 0;
  std::uint64_t highest_ = 0;  ///< highest part that came in any pass
};

/// Returns the record of a transfer whose first header packet came from `source` at `now`
/// (s since 1970). Names are converted to `charset`.
TransferRecord begin_record(const HeaderPacket& header, const TransferKey& key,
                            const std::string& charset, const std::string& source, double now);
