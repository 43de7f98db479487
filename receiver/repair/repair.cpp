#include "receiver/repair/repair.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>

#include "seal/code.h"

namespace {

constexpr std::size_t kDigestStep = 1 << 18;  // bytes of a read

bool read_at(int fd, unsigned char* to, std::size_t size, std::uint64_t at) {
  while (size > 0) {
    const ssize_t got = pread(fd, to, size, static_cast<off_t>(at));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    to += got;
    at += static_cast<std::uint64_t>(got);
    size -= static_cast<std::size_t>(got);
  }
  return true;
}

bool write_at(int fd, const unsigned char* from, std::size_t size, std::uint64_t at) {
  while (size > 0) {
    const ssize_t done = pwrite(fd, from, size, static_cast<off_t>(at));
    if (done < 0 && errno == EINTR) continue;
    if (done <= 0) return false;
    from += done;
    at += static_cast<std::uint64_t>(done);
    size -= static_cast<std::size_t>(done);
  }
  return true;
}

/// The rows of repair parts that came, by block.
using Rows = std::map<std::uint64_t, std::vector<unsigned>>;

/// Solves the blocks of one window, one after the other.
class Window {
 public:
  Window(const CodeLayout& layout, const PartialFile& file, const PartialFile& seal,
         std::uint64_t window)
      : layout_(layout), file_(file), seal_(seal), window_(window) {}

  void solve(const Rows& rows, std::vector<std::uint64_t>& rebuilt) {
    for (const auto& [block, came] : rows) solve_block(block, came, rebuilt);
  }

 private:
  void solve_block(std::uint64_t block, const std::vector<unsigned>& came,
                   std::vector<std::uint64_t>& rebuilt) {
    const unsigned columns = layout_.columns_in(window_, block);
    std::vector<std::uint64_t> lost;
    for (unsigned column = 0; column < columns; ++column) {
      const std::uint64_t part = layout_.data_part({window_, block, column});
      if (file_.missing.contains(part)) lost.push_back(part);
    }
    if (lost.empty() || lost.size() > came.size() || !read_block(block, columns, came)) return;
    const std::vector<unsigned char> bytes =
        rebuild_block(layout_.code(), layout_.part_size(), data_, repair_);
    for (std::size_t i = 0; i < lost.size() && !bytes.empty(); ++i) {
      const std::uint64_t at = offset_of(lost[i]);
      if (write_at(file_.fd, bytes.data() + i * layout_.part_size(), length_at(file_, at), at)) {
        rebuilt.push_back(lost[i]);
      }
    }
  }

  /// Reads what there is of the block: all data parts that came, all repair parts.
  bool read_block(std::uint64_t block, unsigned columns, const std::vector<unsigned>& came) {
    bytes_.assign((columns + came.size()) * layout_.part_size(), 0);
    unsigned char* next = bytes_.data();
    data_.assign(columns, nullptr);
    repair_.assign(layout_.code().r, nullptr);
    for (unsigned column = 0; column < columns; ++column, next += layout_.part_size()) {
      const std::uint64_t part = layout_.data_part({window_, block, column});
      if (file_.missing.contains(part)) continue;
      if (!read_part(file_, part, next)) return false;
      data_[column] = next;
    }
    for (const unsigned row : came) {
      if (!read_part(seal_, layout_.repair_part({window_, block, row}), next)) return false;
      repair_[row] = next;
      next += layout_.part_size();
    }
    return true;
  }

  bool read_part(const PartialFile& from, std::uint64_t part, unsigned char* to) const {
    const std::uint64_t at = offset_of(part);
    return read_at(from.fd, to, length_at(from, at), at);
  }

  std::uint64_t offset_of(std::uint64_t part) const { return (part - 1) * layout_.part_size(); }

  std::size_t length_at(const PartialFile& file, std::uint64_t at) const {
    return static_cast<std::size_t>(std::min<std::uint64_t>(layout_.part_size(), file.size - at));
  }

  const CodeLayout& layout_;
  const PartialFile& file_;
  const PartialFile& seal_;
  std::uint64_t window_;
  std::vector<unsigned char> bytes_;
  std::vector<const unsigned char*> data_;
  std::vector<const unsigned char*> repair_;
};

/// First and last of the ranges of 1..`last` that are not in `missing`.
std::vector<std::pair<std::uint64_t, std::uint64_t>> what_came(const Ranges& missing,
                                                               std::uint64_t last) {
  std::vector<std::pair<std::uint64_t, std::uint64_t>> came;
  std::uint64_t next = 1;
  for (const auto& [from, to] : missing.all()) {
    if (from > next) came.emplace_back(next, std::min(from - 1, last));
    next = to + 1;
  }
  if (next <= last) came.emplace_back(next, last);
  return came;
}

}  // namespace

std::vector<std::uint64_t> rebuild_parts(const CodeLayout& layout, const PartialFile& file,
                                         const PartialFile& seal) {
  std::vector<std::uint64_t> rebuilt;
  if (file.missing.empty()) return rebuilt;
  Rows rows;
  std::uint64_t window = 0;
  const auto solve_window = [&] {
    Window(layout, file, seal, window).solve(rows, rebuilt);
    rows.clear();
  };
  for (const auto& [first, last] : what_came(seal.missing, layout.repair_parts())) {
    for (std::uint64_t part = first; part <= last; ++part) {
      const PartPlace place = layout.repair_place(part);
      if (place.window != window) solve_window();
      window = place.window;
      rows[place.block].push_back(place.index);
    }
  }
  solve_window();
  return rebuilt;
}

std::optional<ContentHash> digest_of(int fd, std::uint64_t size) {
  ContentDigest digest;
  std::vector<unsigned char> bytes(kDigestStep);
  for (std::uint64_t at = 0; at < size;) {
    const auto step = static_cast<std::size_t>(std::min<std::uint64_t>(kDigestStep, size - at));
    if (!read_at(fd, bytes.data(), step, at)) return std::nullopt;
    digest.add(bytes.data(), step);
    at += step;
  }
  return digest.finish();
}
