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

void say_irregular(const std::string& path) { say(1) << "\n" << path << " is not a regular file."; }

/// True if the file can be measured now; says why not.
bool may_be_sent(const std::string& path, const SourceFile& file) {
  if (!file.is_regular()) {
    say_irregular(path);
    return false;
  }
  if (!file.is_open()) {
    say(1) << "\nFile to send(2) " << path << " not found.";
    return false;
  }
  if (file.size() < 0) {
    say(1) << "\nFile " << path << " has no size.";
    return false;
  }
  return true;
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
  if (!may_be_sent(path, measured)) return kNotSent;
  measured.close();
  const sockaddr_in to = receiver_address(*cur_folder);
  const SourceFile file(path);
  if (!file.is_regular()) {
    say_irregular(path);
    return kNotSent;
  }
  if (!file.is_open()) {
    say(1) << "\nFile to send(3)  " << path << " not found.";
    std::exit(1);
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
  if (file.changed_since(measured, path)) {
    say(1) << "\nFile " << path << " changed while it was sent.";
    return kNotSent;
  }
  if (settings.trash_active != 0) move_to_trash(path, info);
  return kSent;
}
