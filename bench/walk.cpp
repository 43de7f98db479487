// The walk over files that are not ready.
#include "scan/walk.h"

#include <cstdlib>
#include <fstream>
#include <iostream>

#include "bench/report.h"
#include "bench/tables.h"
#include "state/scan_folder.h"
#include "state/settings.h"

namespace {

constexpr int kFilesInFolder = 1000;

void make_tree(const std::string& root, int folders) {
  for (int i = 0; i < folders; ++i) {
    const std::string folder = root + "/folder " + std::to_string(i);
    fs::create_directories(folder);
    for (int j = 0; j < kFilesInFolder; ++j) {
      if (!std::ofstream(folder + "/part_" + std::to_string(j) + ".dat")) fail("can't make files");
    }
  }
}

}  // namespace

void measure_walk(const Extent& extent) {
  const int folders = extent.of(100, 20);
  const int files = folders * kFilesInFolder;
  const WorkFolder work;
  const std::string root = work.path("tree");
  make_tree(root, folders);
  settings = Settings{};
  settings.blk_mask = "part_";
  scan_folder folder;
  folder.abs_path = root;
  cur_folder = &folder;
  Samples walk;
  Samples find;
  for (int round = 0; round <= extent.of(15, 5); ++round) {  // the first one warms up
    double begin = now();
    if (scan_dir("", root) != files) fail("the walk did not leave all files");
    const double walked = now() - begin;
    begin = now();
    Child child({find_program("sh"), "-c", "find '" + root + "' -type f | wc -l"},
                Child::Output::kRead);
    if (std::strtol(child.finish().c_str(), nullptr, 10) != files)
      fail("find did not find all files");
    const double found = now() - begin;
    if (round == 0) continue;
    const double scale = 1e3 * 100'000 / files;
    walk.add(walked * scale);
    find.add(found * scale);
  }
  cur_folder = nullptr;
  std::cout << "## The walk\n\n"
            << files << " files in " << folders
            << " folders, left because of how their names begin; all in the cache.\n\n";
  Table table({"", "ms per 100,000 files", "of find"});
  table.row({"Tarnwick", spread(walk, 1), spread(ratios(walk, find), 2)});
  table.row({"find DIR -type f, counted", spread(find, 1), "1"});
  table.print();
}
