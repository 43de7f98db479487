// state/scan_folder.h: the folders to scan, and the one being walked.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "state/metrics.h"

/// One folder to scan and where its files go.
struct scan_folder {
  std::int32_t remain = 1;     ///< entries that the last walk left; negative: not found or stopped
  std::string ip;              ///< receiver, dotted IPv4 as written
  std::int32_t port = 0;       ///< UDP port; its low 16 bits go out
  std::string abs_path;        ///< absolute path of the folder
  std::string dst_dir;         ///< folder at the receiver; empty for none
  std::uint64_t send_cnt = 0;  ///< datagrams counted for this folder
  bool is_missing = false;     ///< the last walk did not find it, and has logged that
  FolderCounts counts{};       ///< for the metrics
};

/// The folders, in the order of the scan list file; built once by make_scan_list().
extern std::vector<scan_folder> scan_list;

/// The entry being walked, set by the frame before each walk; null before the
/// first. The transmitter takes the receiver from it.
extern scan_folder* cur_folder;
