#include <algorithm>
#include <iomanip>

#include "check/report.h"
#include "state/console.h"

namespace {

void print_settings(const Report& report, std::ostream& out) {
  out << "Settings of " << shown(report.program) << " in " << shown(report.folder) << "\n";
  std::size_t widest = 0;
  for (const Origin& setting : report.settings) widest = std::max(widest, setting.value.size());
  const int width = static_cast<int>(std::min<std::size_t>(widest, 40));
  for (const Origin& setting : report.settings) {
    out << "  " << std::left << std::setw(15) << setting.option << std::setw(width) << setting.value
        << "  " << setting.place << " (" << setting.meaning << ")\n";
  }
}

void print_findings(const Findings& findings, std::ostream& out) {
  for (const Weight weight : {Weight::kStop, Weight::kWarning, Weight::kNote}) {
    for (const Finding& finding : findings.all()) {
      if (finding.weight == weight)
        out << name_of(weight) << ": " << finding.about << ": " << shown(finding.text) << "\n";
    }
  }
}

void print_files(const Report& report, std::ostream& out) {
  for (const Verdict& file : report.files) {
    out << (file.goes ? "goes   " : "stays  ") << shown(file.path);
    if (file.goes) {
      out << " to " << file.receiver << " as " << shown(file.arrives) << ", " << file.size
          << " bytes\n";
    } else {
      out << ": " << shown(file.why) << "\n";
    }
  }
  const Total total = total_of(report.files);
  out << total.files << " of " << report.files.size() << " files would go now, " << total.bytes
      << " bytes, in " << std::fixed << std::setprecision(1) << total.seconds
      << " seconds or more\n";
}

}  // namespace

void print_text(const Report& report, std::ostream& out) {
  print_settings(report, out);
  out << "\n";
  if (report.has_files) {
    print_files(report, out);
    out << "\n";
  }
  print_findings(report.findings, out);
  const std::size_t stops = report.findings.count(Weight::kStop);
  const std::size_t warnings = report.findings.count(Weight::kWarning);
  if (stops > 0) {
    out << "It would not run: errors " << stops << ", warnings " << warnings << ".\n";
  } else if (warnings > 0) {
    out << "It would run, with warnings: " << warnings << ".\n";
  } else {
    out << "It would run. There is nothing to say against it.\n";
  }
}
