#include "send/send_file.h"

#include <cstdlib>
#include <ctime>
#include <iostream>

#include "send/crc32.h"
#include "send/header_packet.h"
#include "send/socket.h"
#include "send/source_file.h"
#include "send/transfer_id.h"
#include "send/trash.h"
#include "state/console.h"
#include "state/scan_folder.h"
#include "state/settings.h"

std::string pth;

namespace {

/// True if the file is there to be sent; says why not. `missing` is the text
/// for a file that can't be opened.
bool may_be_sent(const std::string& path, const SourceFile& file, const char* missing) {
  switch (file.state()) {
    case SourceFile::State::kMissing:
      say(1) << missing << path << " not found.";
      return false;
    case SourceFile::State::kIrregular:
      say(1) << "\n" << path << " is not a regular file.";
      return false;
    case SourceFile::State::kOpen:
      break;
  }
  if (file.size() >= 0) return true;
  say(1) << "\nFile " << path << " has no size.";
  return false;
}

/// A file that is deleted without having gone out is lost.
bool settings_send_it_whole() {
  if (settings.head_send >= 1 && settings.data_send >= 1) return true;
  say(1) << "\nNothing is sent: head_send and data_send must be 1 or more.";
  return false;
}

}  // namespace

int SendFile(const std::string& path, const std::string& sub, unsigned short kind) {
  pth = destination_path(cur_folder->dst_dir, sub);
  if (path.empty()) {
    std::cout << "\nName for file to send not found.";
    return kNotSent;
  }
  SourceFile measured(path);
  if (!may_be_sent(path, measured, "\nFile to send(2) ")) return kNotSent;
  measured.close();
  const sockaddr_in to = receiver_address(*cur_folder);
  const SourceFile file(path);
  if (!may_be_sent(path, file, "\nFile to send(3)  ")) {
    if (file.state() == SourceFile::State::kMissing) std::exit(1);
    return kNotSent;
  }
  if (!settings_send_it_whole()) return kNotSent;

  file_info info;
  info.file_size = measured.size();
  info.path_crc = crc32_str(path);
  info.send_time = std::time(nullptr);
  info.file_kind = kind;
  info.transfer_id = next_transfer_id();
  say(1) << "\nSending  " << path << "\nto ip " << cur_folder->ip << ":" << cur_folder->port
         << "\n";
  Transfer transfer(path, pth, file, to, info);
  for (int pass = 0; pass < settings.data_send; ++pass) {
    if (const int result = transfer.send_pass(); result != kSent) return result;
  }
  if (file.differs_from(measured.stamp(), path)) {
    say(1) << "\nFile " << path << " changed while it was sent.";
    return kNotSent;
  }
  if (settings.trash_active != 0) move_to_trash(path, info, measured.stamp());
  return kSent;
}
