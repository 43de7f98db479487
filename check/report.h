// check/report.h: makes and prints the report of all that the check found out.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "check/dry_run.h"
#include "check/options.h"
#include "check/origins.h"
#include "ground/findings.h"

struct Report {
  std::string program;
  std::string folder;  ///< the working folder
  std::vector<Origin> settings;
  Findings findings;
  bool has_files = false;
  std::vector<Verdict> files;
};

/// How many files would be sent, their bytes, and the seconds that this takes.
struct Total {
  std::size_t files = 0;
  std::int64_t bytes = 0;
  double seconds = 0;
};
Total total_of(const std::vector<Verdict>& files);

/// Reads the settings as the sender does, and checks all that they concern.
Report make_report(const CheckOptions& options);

void print_text(const Report& report, std::ostream& out);
void print_json(const Report& report, std::ostream& out);
