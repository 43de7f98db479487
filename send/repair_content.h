// send/repair_content.h: a file's repair parts, which are computed as they are read.
#pragma once

#include <vector>

#include "seal/code.h"
#include "send/content.h"

/// Reads the file once more, one window at a time. In memory are the repair parts of
/// one window, 64 MiB at most, and a small piece of the file. Keeps a reference to
/// `file`, which must outlive it.
class RepairContent final : public Content {
 public:
  /// `layout` lays out the `file_size` bytes of `file`.
  RepairContent(Content& file, std::uint64_t file_size, const CodeLayout& layout);

  void rewind() override;

  /// While it computes a window, also looks for a stop request and, at `verboze` 1 and
  /// up, for the escape key.
  std::uint64_t read(unsigned char* to, std::uint64_t size) override;
  int end_short() const override;

 private:
  bool compute_next_window();
  bool may_go_on();

  Content& file_;
  const std::uint64_t file_size_;
  const CodeLayout layout_;
  WindowEncoder encoder_;
  std::vector<unsigned char> piece_;  ///< whole parts of the file
  std::uint64_t next_window_ = 0;
  std::uint64_t file_left_ = 0;    ///< bytes of the file behind the present window
  std::uint64_t window_read_ = 0;  ///< bytes of the present window that were read
  int end_ = 0;                    ///< result of the transfer, if it was stopped in here
};
