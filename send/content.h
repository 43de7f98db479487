// send/content.h: the bytes that a transfer carries.
#pragma once

#include <cstdint>

#include "send/source_file.h"

class Content {
 public:
  Content() = default;
  Content(const Content&) = delete;
  Content& operator=(const Content&) = delete;
  virtual ~Content() = default;

  /// Goes back to the first byte. Every pass begins with this call.
  virtual void rewind() = 0;

  /// Reads the next `size` bytes to `to`. Returns the number of bytes read, which is
  /// less than `size` only if there are no more, or if the transfer has to end.
  virtual std::uint64_t read(unsigned char* to, std::uint64_t size) = 0;

  /// Tells the user why read() returned too few bytes, and returns the result of the
  /// transfer (send/transfer.h).
  virtual int end_short() const = 0;
};

/// A file's own bytes. Keeps a reference to `file`, which must outlive it.
class FileContent final : public Content {
 public:
  explicit FileContent(const SourceFile& file) : file_(file) {}

  void rewind() override { file_.rewind(); }
  std::uint64_t read(unsigned char* to, std::uint64_t size) override {
    return file_.read(to, size);
  }
  int end_short() const override;

 private:
  const SourceFile& file_;
};
