#include "frame/config_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "frame/options.h"
#include "ground/write_all.h"
#include "softlib/links.h"
#include "softlib/system_log.h"
#include "state/settings.h"

namespace {

std::vector<std::string> places(bool only_named) {
  std::vector<std::string> paths{settings.config_name};
  if (!only_named) {
    paths.push_back(settings.prg_dir + "/" + kConfigFileName);
    paths.push_back(std::string("/etc/") + kConfigFileName);
  }
  return paths;
}

/// Applies the line. Returns what it did, without its file and number.
Word apply_line(std::string line) {
  line.erase(std::min(line.find('\r'), line.size()));
  Word word = apply_long_option(line, Place::kConfigFile);
  word.text = line;
  if (!word.option.empty() || line.empty() || !is_setting(line[0])) return word;
  word.option = std::string("-") + line[0];
  word.kind = kind_of(line[0]);
  word.heard = Heard::kElsewhere;
  if (!is_config_key(line[0])) return word;
  word.heard = Heard::kNoValue;  // a letter alone has no value and sets nothing
  if (line.size() < 2) return word;
  word.heard = Heard::kSet;
  word.value = line.substr(2);
  apply_setting(line[0], word.value);
  return word;
}

std::string first_config() {
  std::ostringstream file;
  file << "# Режим запуска: \n"
       << "m:" << settings.mode << "\n"
       << "# Дополнительная индикация:\n"
       << "v:" << settings.verboze << "\n"
       << "# Ведение лога:\n"
       << "l:" << settings.logs << "\n"
       << "# Папка для поиска файлов:\n"
       << "f:" << settings.sdir << "\n"
       << "# IP адрес сервера:\n"
       << "i:" << settings.ip << "\n"
       << "# Порт сервера:\n"
       << "p:" << settings.port << "\n"
       << "# Количество повторов заголовка:\n"
       << "u:" << settings.head_send << "\n"
       << "# Количество повторов для данных:\n"
       << "d:" << settings.data_send << "\n"
       << "# Скорость передачи MBit:\n"
       << "s:95\n"
       << "# Размер MTU (min 1400..max 65507):\n"
       << "t:61440\n"
       << "# Файл списка сканирования:\n"
       << "j:\n"
       << "# Задержка в секундах перед следующим сканированием:\n"
       << "c:" << settings.time_wait << "\n"
       << "# Задержка в секундах отсылки файла от момента записи:\n"
       << "x:" << settings.time_send_wait << "\n"
       << "# Сохранение посланных файлов в корзине:\n"
       << "k:" << settings.trash_active << "\n"
       << "# Путь до корзины корзине:\n"
       << "y:" << settings.trash_path << "\n";
  return file.str();
}

bool write_first_config(const Fd& file) {
  return write_all(file.get(), first_config()) &&
         fsync(file.get()) == 0;  // some file systems report a full disk only here
}

/// Writes the file before it gets a name, so that not even a kill leaves half of it.
/// Returns false, with nothing written, if the name is taken (even by a link to nothing),
/// if there is no room, or if the file system has no files without a name.
bool save_at_once(const std::string& path) {
  const std::size_t name_at = path.rfind('/') + 1;  // 0 without a slash
  const Opened folder =
      open_path(name_at == 0 ? "." : path.substr(0, name_at), O_PATH | O_DIRECTORY);
  const Fd file(openat(folder.fd.get(), ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666));
  if (!folder || !file || !write_first_config(file)) return false;
  const std::string held = "/proc/self/fd/" + std::to_string(file.get());
  return linkat(AT_FDCWD, held.c_str(), folder.fd.get(), path.c_str() + name_at,
                AT_SYMLINK_FOLLOW) == 0;  // open(2), O_TMPFILE
}

}  // namespace

void apply_config(std::istream& in, const std::string& path, const WordListener& heard) {
  for (int number = 1; in.good(); ++number) {
    std::string line;
    std::getline(in, line);
    Word word = apply_line(std::move(line));
    word.file = path;
    word.number = number;
    if (heard) heard(word);
  }
}

bool LoadConfig(bool only_named, const WordListener& heard) {
  for (const std::string& path : places(only_named)) {
    std::ifstream file(path);
    if (!file) continue;
    if (heard) heard({Heard::kOpened, path, "", "", ValueKind::kText, path, 0});
    apply_config(file, path, heard);
    return true;
  }
  return false;
}

bool SaveConfig() {
  const std::string& path = settings.config_name;
  if (save_at_once(path)) return true;
  const Opened file = open_path(path, O_WRONLY | O_CREAT | O_NONBLOCK | O_NOCTTY, 0666);
  struct stat st {};
  if (!file || fstat(file.fd.get(), &st) != 0 || !S_ISREG(st.st_mode)) return false;
  const bool whole = ftruncate(file.fd.get(), 0) == 0 && write_first_config(file.fd);
  if (whole) return true;
  warn_system("can't write all of the configuration file " + path + ": " + std::strerror(errno));
  (void)unlink(path.c_str());  // later starts would take half a file for a whole one
  return true;
}
