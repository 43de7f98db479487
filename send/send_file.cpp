#include "send/send_file.h"

#include <fcntl.h>

#include <ctime>
#include <iostream>
#include <memory>

#include "send/header_packet.h"
#include "send/seal.h"
#include "send/socket.h"
#include "send/transfer_id.h"
#include "send/trash.h"
#include "softlib/links.h"
#include "state/console.h"
#include "state/metrics.h"
#include "state/scan_folder.h"
#include "state/settings.h"
#include "wire/crc32.h"
#include "wire/wire_format.h"

std::string pth;

namespace {

/// True if the file can be sent; else says why not.
bool may_be_sent(const SourceFile& file) {
  const Sendable result = sendable(file);
  if (result != Sendable::kYes) ++metrics.failed[kUnreadable];
  switch (result) {
    case Sendable::kMissing:
      say(1) << "\nFile to send(2) " << shown(file.path()) << " not found.";
      return false;
    case Sendable::kIrregular:
      say(1) << "\n" << shown(file.path()) << " is not a regular file.";
      return false;
    case Sendable::kNoSize:
      say(1) << "\nFile " << shown(file.path()) << " has no size.";
      return false;
    case Sendable::kYes:
      break;
  }
  return true;
}

/// True if the file is still what went out, so that it may be removed; else says why not.
bool is_still_the_same(SourceFile& file, unsigned short kind) {
  if (file.look() == SourceFile::Look::kOther) {
    ++metrics.failed[kChanged];
    say(1) << "\nFile " << shown(file.path()) << " changed while it was sent.";
    return false;
  }
  if (kind == kKindTrashJournal || !file.was_opened_since()) return true;  // the journal stays
  ++metrics.failed[kOpenedByOther];
  say(1) << "\nFile " << shown(file.path()) << " was opened while it was sent.";
  return false;
}

}  // namespace

Sendable sendable(const SourceFile& file) {
  switch (file.state()) {
    case SourceFile::State::kMissing:
    case SourceFile::State::kClosed:
      return Sendable::kMissing;
    case SourceFile::State::kIrregular:
      return Sendable::kIrregular;
    case SourceFile::State::kOpen:
      break;
  }
  return file.size() >= 0 ? Sendable::kYes : Sendable::kNoSize;
}

// a file that did not go out whole would be lost when it is deleted
bool settings_send_it_whole() { return settings.head_send >= 1 && settings.data_send >= 1; }

int SendFile(SourceFile& file, const std::string& sub, unsigned short kind) {
  pth = destination_path(cur_folder->dst_dir, sub);
  const std::string& path = file.path();
  if (path.empty()) {
    std::cout << "\nName for file to send not found.";
    return kNotSent;
  }
  if (!may_be_sent(file)) return kNotSent;
  const sockaddr_in to = receiver_address(*cur_folder);
  if (!settings_send_it_whole()) {
    say(1) << "\nNothing is sent: head_send and data_send must be 1 or more.";
    return kNotSent;
  }

  file_info info;
  info.file_size = file.size();
  info.path_crc = crc32_str(path);
  info.send_time = std::time(nullptr);
  info.file_kind = kind;
  info.transfer_id = next_transfer_id();
  say(1) << "\nSending  " << shown(path) << "\nto ip " << cur_folder->ip << ":" << cur_folder->port
         << "\n";
  const PresentFile present(path, part_count(static_cast<std::uint64_t>(info.file_size),
                                             static_cast<std::uint32_t>(settings.udata_size)) *
                                      static_cast<std::uint64_t>(settings.data_send));
  FileContent content(file);
  const std::unique_ptr<Seal> seal = begin_seal(content);
  Transfer transfer(build_header_packet(info, path, pth), seal ? seal->content() : content, to,
                    info);
  for (int pass = 0; pass < settings.data_send; ++pass) {
    if (const int result = transfer.send_pass(); result != kSent) return result;
  }
  if (!is_still_the_same(file, kind)) return kNotSent;
  if (seal) {
    if (const int result = seal->send({file, pth, info, to}); result != kSent) return result;
    if (!is_still_the_same(file, kind)) return kNotSent;
  }
  if (settings.trash_active != 0) move_to_trash(file, info);
  return kSent;
}

int SendFile(const std::string& path, const std::string& sub, unsigned short kind) {
  const std::size_t name_at = path.rfind('/') + 1;  // 0 without a slash
  const std::string folder = name_at == 0 ? "." : path.substr(0, name_at);
  const Opened at = open_path(folder, O_PATH | O_DIRECTORY);
  SourceFile file({at.fd.get(), path.substr(name_at), path});
  file.open();
  return SendFile(file, sub, kind);
}
