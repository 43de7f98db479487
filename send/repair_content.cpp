#include "send/repair_content.h"

#include <algorithm>

#include "send/stop_check.h"
#include "send/transfer.h"
#include "softlib/keyboard.h"
#include "state/settings.h"

namespace {

constexpr std::size_t kPieceSize = 262'144;

}  // namespace

RepairContent::RepairContent(Content& file, std::uint64_t file_size, const CodeLayout& layout)
    : file_(file),
      file_size_(file_size),
      layout_(layout),
      encoder_(layout),
      piece_(kPieceSize / layout.part_size() * layout.part_size()) {}

void RepairContent::rewind() {
  file_.rewind();
  next_window_ = 0;
  file_left_ = file_size_;
  window_read_ = encoder_.size();  // so that the first read() computes the first window
}

std::uint64_t RepairContent::read(unsigned char* to, std::uint64_t size) {
  std::uint64_t total = 0;
  while (total < size) {
    if (window_read_ == encoder_.size() && !compute_next_window()) break;
    const std::uint64_t count = std::min(size - total, encoder_.size() - window_read_);
    std::copy_n(encoder_.repair_part(0) + window_read_, count, to + total);
    window_read_ += count;
    total += count;
  }
  return total;
}

bool RepairContent::compute_next_window() {
  if (next_window_ == layout_.windows()) return false;
  const std::uint64_t part = layout_.part_size();
  std::uint64_t left = std::min(layout_.parts_in(next_window_) * part, file_left_);
  encoder_.start(next_window_++);
  window_read_ = 0;
  file_left_ -= left;
  while (left > 0) {
    if (!may_go_on()) return false;
    const std::uint64_t wanted = std::min<std::uint64_t>(left, piece_.size());
    if (file_.read(piece_.data(), wanted) != wanted) return false;
    for (std::uint64_t at = 0; at < wanted; at += part) {
      encoder_.add(piece_.data() + at, std::min(part, wanted - at));
    }
    left -= wanted;
  }
  return true;
}

bool RepairContent::may_go_on() {
  if (check2break()) end_ = kNotSent;
  if (settings.verboze > 0 && escape_was_pressed()) end_ = kEscape;
  return end_ == kSent;
}

int RepairContent::end_short() const { return end_ != kSent ? end_ : file_.end_short(); }
