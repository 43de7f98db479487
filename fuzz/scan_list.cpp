// A scan list, as a file.
#include "scan/scan_list.h"

#include <algorithm>
#include <sstream>

#include "fuzz/target.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = text_of(data, size);
  std::istringstream in(text);
  std::vector<scan_folder> folders;
  const ListEnd end =
      read_scan_list(in, [&](const std::string&, std::optional<scan_folder> folder) {
        if (folder) folders.push_back(*std::move(folder));
      });
  check(end == ListEnd::kWhole);
  check(folders.size() <= static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1);
  for (const scan_folder& folder : folders) {
    check(folder.abs_path[0] == '/' && folder.abs_path.find(' ') == std::string::npos);
    check(folder.ip.find_first_of(" :\n") == std::string::npos);
    check(text.find(folder.dst_dir) != std::string::npos);
  }
  return 0;
}
