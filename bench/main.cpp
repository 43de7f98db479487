// tarnwick-bench [quick] [TABLE...]: see docs/performance.md.
#include <sys/utsname.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <thread>

#include "bench/tables.h"

namespace {

struct Measurement {
  const char* name;
  void (*measure)(const Extent& extent);
};

constexpr Measurement kMeasurements[] = {{"sending", measure_sending},
                                         {"sealing", measure_sealing},
                                         {"goodput", measure_goodput},
                                         {"pacing", measure_pacing},
                                         {"walk", measure_walk},
                                         {"open-files", measure_open_files},
                                         {"small-files", measure_small_files}};

std::string cpu_model() {
  std::ifstream cpus("/proc/cpuinfo");
  for (std::string line; std::getline(cpus, line);) {
    if (line.rfind("model name", 0) == 0) return line.substr(line.find(':') + 2);
  }
  return "unknown processor";
}

void print_conditions(bool quick) {
  utsname system{};
  uname(&system);
  const std::time_t today = std::time(nullptr);
  double load = 0;
  std::ifstream("/proc/loadavg") >> load;
  std::cout << "# Bench, " << std::put_time(std::localtime(&today), "%Y-%m-%d %H:%M")
            << (quick ? ", quick" : "") << "\n\n"
            << std::thread::hardware_concurrency() << " processors (" << cpu_model() << "), "
            << system.sysname << " " << system.release << ", compiler " << __VERSION__ << ", load "
            << load << " at the start.\n"
            << "MEDIAN (LEAST..MOST) of the rounds; a ratio is made in each round.\n";
  if (!enter_own_network()) {
    std::cout << "Not in a network of its own (needs CAP_SYS_ADMIN): other traffic counts, too.\n";
  }
  std::cout << std::endl;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> words(argv + 1, argv + argc);
  if (words.size() >= 4 && words[0] == "--send-once") {
    return send_once({words.begin() + 1, words.end()});
  }
  const auto asked = [&words](const std::string& word) {
    return std::find(words.begin(), words.end(), word) != words.end();
  };
  const Extent extent{asked("quick")};
  words.erase(std::remove(words.begin(), words.end(), "quick"), words.end());
  for (const std::string& word : words) {
    if (std::none_of(std::begin(kMeasurements), std::end(kMeasurements),
                     [&word](const Measurement& m) { return word == m.name; })) {
      fail("no such table: " + word);
    }
  }
  print_conditions(extent.quick);
  for (const Measurement& m : kMeasurements) {
    if (words.empty() || asked(m.name)) m.measure(extent);
  }
}
