// The open-file test, on a file that nobody holds.
#include "softlib/open_files.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <iostream>

#include "bench/report.h"
#include "bench/tables.h"

namespace {

constexpr int kRepeats = 20;  // of the quick ones, in each round

struct Calls {
  int processes = 0;
  int descriptors = 0;
};

using Block = std::array<char, 32768>;

Fd open_folder(int parent, const char* name) {
  return Fd(openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

template <typename Visit>
void each_name(const Fd& folder, Block& block, Visit visit) {
  for (ssize_t got = 0; (got = getdents64(folder.get(), block.data(), block.size())) > 0;) {
    for (ssize_t at = 0; at < got;) {
      const auto* entry = reinterpret_cast<const dirent64*>(block.data() + at);
      at += entry->d_reclen;
      visit(entry->d_name);
    }
  }
}

/// The system calls that cannot be avoided, and nothing done with what they give.
Calls call_barely() {
  alignas(dirent64) static Block processes;
  alignas(dirent64) static Block descriptors;
  static std::array<char, 4096> target;
  Calls calls;
  const Fd proc = open_folder(AT_FDCWD, "/proc");
  each_name(proc, processes, [&calls, &proc](const char* pid) {
    if (pid[0] < '0' || pid[0] > '9') return;
    char path[280];
    std::snprintf(path, sizeof path, "%s/fd", pid);
    const Fd folder = open_folder(proc.get(), path);
    if (!folder) return;
    ++calls.processes;
    each_name(folder, descriptors, [&calls, &folder](const char* name) {
      if (name[0] == '.') return;
      (void)!readlinkat(folder.get(), name, target.data(),
                        target.size());  // refused ones cost, too
      ++calls.descriptors;
    });
  });
  return calls;
}

double time_of_program(const std::vector<std::string>& command) {
  const double begin = now();
  Child(command, Child::Output::kDropped).finish();
  return now() - begin;
}

struct Tool {
  std::string name;
  std::vector<std::string> command;
  Samples ms{};
};

}  // namespace

void measure_open_files(const Extent& extent) {
  const WorkFolder work;
  const std::string file = work.path("file");
  make_file(file, 1000);
  std::vector<Tool> tools{{"starting a program that does nothing", {find_program("true")}}};
  std::vector<std::string> notes;
  for (const auto& [program, package] : {std::pair("fuser", "psmisc"), std::pair("lsof", "lsof")}) {
    const std::string path = find_program(program);
    if (path.empty()) {
      notes.push_back(std::string(program) + " is not installed (Debian: " + package + ").");
    } else {
      tools.push_back({std::string(program) + " FILE", {path, file}});
    }
  }
  Samples test;
  Samples bare;
  for (int round = 0; round <= extent.of(25, 7); ++round) {  // the first one warms up
    double begin = now();
    for (int i = 0; i < kRepeats; ++i) {
      if (check_open_file(file) != 0) fail("the file is open elsewhere");
    }
    const double tested = (now() - begin) * 1e3 / kRepeats;
    begin = now();
    for (int i = 0; i < kRepeats; ++i) call_barely();
    const double called = (now() - begin) * 1e3 / kRepeats;
    for (Tool& tool : tools) {
      const double ms = time_of_program(tool.command) * 1e3;
      if (round > 0) tool.ms.add(ms);
    }
    if (round == 0) continue;
    test.add(tested);
    bare.add(called);
  }
  const Calls calls = call_barely();
  std::cout << "## The open-file test\n\n"
            << calls.processes << " processes with " << calls.descriptors << " descriptors.\n\n";
  Table table({"", "ms", "of the test", "of the bare calls"});
  table.row({"Tarnwick", spread(test, 3), "1", spread(ratios(test, bare), 2)});
  table.row({"the bare system calls", spread(bare, 3), spread(ratios(bare, test), 2), "1"});
  for (const Tool& tool : tools) {
    table.row({tool.name, spread(tool.ms, 2), spread(ratios(tool.ms, test), 1),
               spread(ratios(tool.ms, bare), 1)});
  }
  table.print();
  for (const std::string& note : notes) std::cout << note << "\n";
  if (!notes.empty()) std::cout << std::endl;
}
