#include "send/trash.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <iomanip>
#include <iostream>
#include <sstream>

#include "send/removal.h"
#include "softlib/file_system.h"
#include "softlib/links.h"
#include "softlib/system_log.h"
#include "state/console.h"
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

bool note_in_journal(int folder, const std::string& journal, const std::string& line) {
  // O_NONBLOCK: somebody may have put a pipe in its place
  const Opened file = open_below(folder, journal.c_str(),
                                 O_RDWR | O_APPEND | O_CREAT | O_NONBLOCK | O_NOCTTY, 0666);
  struct stat st {};
  if (!file || fstat(file.fd.get(), &st) != 0 || !S_ISREG(st.st_mode)) return false;
  const std::string text = line + "\n";
  const ssize_t written = write(file.fd.get(), text.data(), text.size());
  if (written == static_cast<ssize_t>(text.size())) return true;
  // half a line would run into the next one
  if (written > 0) (void)!ftruncate(file.fd.get(), lseek(file.fd.get(), 0, SEEK_CUR) - written);
  return false;
}

void move_to_trash(SourceFile& file, const file_info& info) {
  const std::string name = trash_name(info);
  const std::string new_path = settings.trash_path + "/" + name;
  const std::string journal_path = settings.trash_path + "/" + settings.trash_log;
  std::cout << shown(journal_path) << std::endl << shown(new_path) << std::endl;
  (void)MakeDir(settings.trash_path);  // if it fails, the opening fails
  const Opened trash = open_path(settings.trash_path + "/", O_PATH | O_DIRECTORY);
  static Warning no_trash;
  no_trash.note(bool(trash), "can't open the trash folder " + settings.trash_path);
  if (!trash) return;
  (void)take_away(file, [&](Aside& aside) {  // a file that stays is found by the next scan
    static Warning no_journal;
    no_journal.note(note_in_journal(trash.fd.get(), settings.trash_log, name + " " + file.path()),
                    "can't write the trash journal " + journal_path);
    return aside.move_to(trash.fd.get(), name);
  });
}
