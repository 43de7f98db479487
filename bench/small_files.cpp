// Many small files: what does the program add to the prescribed pauses?
#include <iostream>

#include "bench/report.h"
#include "bench/tables.h"
#include "bench/transmitter.h"
#include "scan/walk.h"
#include "softlib/open_files.h"
#include "softlib/pause.h"
#include "state/scan_folder.h"

namespace {

constexpr std::uint32_t kAfterHeaderUs = 10'000;                         // prescribed
constexpr std::uint32_t kAfterFileUs = 20'000;                           // prescribed
constexpr double kPausesOfFile = (kAfterHeaderUs + kAfterFileUs) / 1e6;  // s
constexpr std::uint64_t kFileSize = 1000;
constexpr int kTrials = 50;

/// What a file costs at the least, s. The test is timed behind pauses, as in the
/// walk: by then the processor has slept, and its caches belong to others.
struct Costs {
  double pauses = 0;
  double test = 0;
};

void add_trials(Costs& costs, const std::string& file) {
  for (int i = 0; i < kTrials; ++i) {
    const double begin = now();
    pause_us(kAfterHeaderUs);
    pause_us(kAfterFileUs);
    const double paused = now();
    if (check_open_file(file) != 0) fail("the file is open elsewhere");
    costs.pauses += (paused - begin) / (2 * kTrials);
    costs.test += (now() - paused) / (2 * kTrials);
  }
}

}  // namespace

void measure_small_files(const Extent& extent) {
  const int files = extent.of(1000, 100);
  const int rounds = extent.of(3, 2);
  Samples total;
  Samples tests;
  Samples kept_pauses;
  Samples over_both;
  Samples over_kept;
  for (int round = 0; round < rounds; ++round) {
    const WorkFolder work;
    const Sink sink;
    const std::string folder = work.path("out");
    fs::create_directory(folder);
    for (int i = 0; i < files; ++i) make_file(folder + "/" + std::to_string(i), kFileSize);
    Costs costs;  // half of the trials before and half behind: the machine's load changes
    add_trials(costs, folder + "/0");
    Transmitter transmitter(1400, 0, sink.port());
    cur_folder->abs_path = folder;
    const double begin = now();
    if (scan_dir("", folder) != 0) fail("files were left");
    const double took = now() - begin;
    make_file(work.path("another"), kFileSize);
    add_trials(costs, work.path("another"));
    total.add(took);
    tests.add(files * costs.test);
    kept_pauses.add(files * costs.pauses);
    over_both.add(100 * (took / (files * (kPausesOfFile + costs.test)) - 1));
    over_kept.add(100 * (took / (files * (costs.pauses + costs.test)) - 1));
  }
  std::cout << "## Small files\n\n"
            << files << " files of " << kFileSize << " bytes in one folder, one header packet and "
            << "one pass each, unpaced; " << rounds << " rounds.\n\n";
  Table table({"", "s"});
  table.row({"in all", spread(total, 3)});
  table.row({"prescribed pauses (10 and 20 ms a file)", number(files * kPausesOfFile, 3)});
  table.row({"open-file tests", spread(tests, 3)});
  table.row({"over these two, %", spread(over_both, 2)});
  table.row({"the same pauses as the system keeps them", spread(kept_pauses, 3)});
  table.row({"over these and the tests, %", spread(over_kept, 2)});
  table.row({"files a second", number(files / total.median(), 1)});
  table.print();
}
