#include "scan/scan_list.h"

#include <algorithm>
#include <fstream>
#include <ostream>
#include <utility>

#include "softlib/file_system.h"
#include "softlib/numbers.h"
#include "state/console.h"
#include "state/settings.h"

namespace {

std::string make_absolute(const std::string& path) {
  if (path.compare(0, 1, "/") == 0) return path;
  const std::string cur_path = get_cur_dir();
  // unknown: "" would make it a folder of the root
  return (cur_path.empty() ? std::string(".") : cur_path) + "/" + path;
}

/// The text of `line` up to the space at or after `at`; moves `at` behind the
/// spaces that follow.
std::string take_field(const std::string& line, std::size_t& at) {
  const std::size_t end = std::min(line.find(' ', at), line.size());
  const std::size_t begin =
      std::exchange(at, std::min(line.find_first_not_of(' ', end), line.size()));
  return line.substr(begin, end - begin);
}

void set_receiver(scan_folder& folder, const std::string& address) {
  const std::size_t colon = address.find(':');
  folder.ip = address.substr(0, colon);
  folder.port = colon == std::string::npos ? settings.port : to_int(address.substr(colon + 1));
}

scan_folder folder_of_settings() {
  scan_folder folder;
  folder.ip = settings.ip;
  folder.port = settings.port;
  folder.abs_path = make_absolute(settings.sdir);
  return folder;
}

}  // namespace

std::optional<scan_folder> parse_scan_line(const std::string& line) {
  if (line.find(' ') == std::string::npos) return std::nullopt;
  std::size_t at = 0;
  scan_folder folder;
  set_receiver(folder, take_field(line, at));
  const std::string path = take_field(line, at);
  // an address alone: its folder must not become the working folder
  if (path.empty()) return std::nullopt;
  folder.abs_path = make_absolute(path);
  folder.dst_dir = line.substr(at);
  return folder;
}

void make_scan_list() {
  scan_list.clear();
  if (settings.scan_list_name.empty()) {
    scan_list.push_back(folder_of_settings());
    return;
  }
  std::ifstream file(make_absolute(settings.scan_list_name));
  if (!file) return;
  while (file.good()) {
    std::string line;
    std::getline(file, line);
    say(1) << line << std::endl;
    if (auto folder = parse_scan_line(line)) scan_list.push_back(*std::move(folder));
  }
}
