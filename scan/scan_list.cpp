#include "scan/scan_list.h"

#include <algorithm>
#include <fstream>
#include <ostream>
#include <utility>

#include "softlib/file_system.h"
#include "softlib/numbers.h"
#include "softlib/system_log.h"
#include "state/console.h"
#include "state/settings.h"

namespace {

/// Returns the text of `line` from `at` to the next space, and moves `at` behind the
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

}  // namespace

std::string make_absolute(const std::string& path) {
  if (path.compare(0, 1, "/") == 0) return path;
  const std::string cur_path = get_cur_dir();
  // if the working folder is unknown, "" would make it a folder of the root
  return (cur_path.empty() ? std::string(".") : cur_path) + "/" + path;
}

scan_folder folder_of_settings() {
  scan_folder folder;
  folder.ip = settings.ip;
  folder.port = settings.port;
  folder.abs_path = make_absolute(settings.sdir);
  return folder;
}

std::optional<scan_folder> parse_scan_line(const std::string& line) {
  if (line.find(' ') == std::string::npos) return std::nullopt;
  std::size_t at = 0;
  scan_folder folder;
  set_receiver(folder, take_field(line, at));
  const std::string path = take_field(line, at);
  // a line with an address alone must not mean the working folder
  if (path.empty()) return std::nullopt;
  folder.abs_path = make_absolute(path);
  folder.dst_dir = line.substr(at);
  return folder;
}

ListEnd read_scan_list(
    const std::function<void(const std::string&, std::optional<scan_folder>)>& heard) {
  std::ifstream file(make_absolute(settings.scan_list_name));
  return file ? read_scan_list(file, heard) : ListEnd::kMissing;
}

ListEnd read_scan_list(
    std::istream& in,
    const std::function<void(const std::string&, std::optional<scan_folder>)>& heard) {
  while (in.good()) {
    std::string line;
    std::getline(in, line);
    heard(line, parse_scan_line(line));
  }
  return in.bad() ? ListEnd::kBroken : ListEnd::kWhole;
}

void make_scan_list() {
  scan_list.clear();
  if (settings.scan_list_name.empty()) {
    scan_list.push_back(folder_of_settings());
    return;
  }
  const ListEnd end =
      read_scan_list([](const std::string& line, std::optional<scan_folder> folder) {
        say(1) << shown(line) << std::endl;
        if (folder) scan_list.push_back(*std::move(folder));
      });
  if (end == ListEnd::kMissing) err_system("can't open the scan list " + settings.scan_list_name);
  if (end == ListEnd::kBroken)
    err_system("can't read all of the scan list " + settings.scan_list_name);
}
