#include "frame/config_file.h"

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include "frame/options.h"
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

void apply_line(std::string line) {
  line.erase(std::min(line.find('\r'), line.size()));
  // a letter alone has no value and sets nothing
  if (line.size() < 2 || !is_config_key(line[0])) return;
  apply_setting(line[0], line.substr(2));
}

}  // namespace

bool LoadConfig(bool only_named) {
  for (const std::string& path : places(only_named)) {
    std::ifstream file(path);
    if (!file) continue;
    while (file.good()) {
      std::string line;
      std::getline(file, line);
      apply_line(line);
    }
    return true;
  }
  return false;
}

bool SaveConfig() {
  std::ofstream file(settings.config_name);
  if (!file) return false;
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
  return true;
}
