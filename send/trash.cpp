#include "send/trash.h"

#include <cstdio>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <sstream>

#include "state/settings.h"

std::string int2hex(int value, int width) {
  std::ostringstream text;
  text << std::uppercase << std::hex << std::setfill('0') << std::setw(width)
       << static_cast<unsigned int>(value);
  return text.str();
}

std::string trash_name(const file_info& info) {
  return int2hex(static_cast<int>(info.send_time), 10) +
         int2hex(static_cast<int>(info.transfer_id), 8) + int2hex(info.path_crc, 12);
}

void move_to_trash(const std::string& path, const file_info& info, const FileStamp& sent) {
  const std::string name = trash_name(info);
  const std::string new_path = settings.trash_path + "/" + name;
  const std::string journal_path = settings.trash_path + "/" + settings.trash_log;
  std::cout << journal_path << std::endl << new_path << std::endl;
  (void)MakeDir(settings.trash_path);  // shows in the journal and the rename
  std::fstream journal(journal_path, std::ios::in | std::ios::out | std::ios::app);
  if (journal) journal << name << " " << path << std::endl;
  journal.close();
  // the console may have held us: what has come in its place meanwhile was not sent
  if (changed_since(sent, path)) return;
  (void)std::rename(path.c_str(), new_path.c_str());  // else it stays, found by the next scan
}
