// A line of the scan list.
#include <cstdlib>

#include "scan/scan_list.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string line(reinterpret_cast<const char*>(data), size);
  const auto folder = parse_scan_line(line);
  if (!folder) return 0;
  const bool sound = folder->abs_path[0] == '/' && folder->ip.find_first_of(" :") == line.npos &&
                     folder->dst_dir == line.substr(line.size() - folder->dst_dir.size());
  if (!sound) std::abort();
  return 0;
}
