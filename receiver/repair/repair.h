// receiver/repair/repair.h: restores the parts of a file that the line lost, with the repair
// parts of its seal.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "receiver/base/ranges.h"
#include "seal/digest.h"
#include "seal/layout.h"

/// A file that may lack parts of `part_size` bytes: part 1 is at its beginning, the last
/// one may be shorter.
struct PartialFile {
  int fd = -1;             ///< open for reading, for the file itself also for writing
  std::uint64_t size = 0;  ///< of the whole file, bytes
  const Ranges& missing;   ///< part numbers
};

/// Writes into `file` the missing parts of every block that can be solved with what there
/// is of `seal`, its repair parts. Returns their numbers, in no order. A block that can't
/// be read or written is left as it is; a later call may solve it. It takes the memory of
/// one block, at most 255 parts, and its time goes by what is there, never by what a
/// layout claims.
std::vector<std::uint64_t> rebuild_parts(const CodeLayout& layout, const PartialFile& file,
                                         const PartialFile& seal);

/// The digest of the first `size` bytes of `fd`; nothing if they can't be read.
std::optional<ContentHash> digest_of(int fd, std::uint64_t size);
