#include "state/scan_folder.h"

std::vector<scan_folder> scan_list;
scan_folder* cur_folder = nullptr;
