#include <iostream>

#include "check/options.h"
#include "check/report.h"
#include "frame/start_up.h"

namespace {

/// Keeps the sender's code from writing to the console, where only the report may stand.
class Silence {
 public:
  Silence() : kept_(std::cout.rdbuf(nullptr)) {}
  ~Silence() { std::cout.rdbuf(kept_); }
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;

 private:
  std::streambuf* kept_;
};

Report make_silent_report(const CheckOptions& options) {
  const Silence silence;
  return make_report(options);
}

}  // namespace

int main(int argc, char** argv) {
  occupy_standard_descriptors();
  const CheckOptions options = take_own_options(argc, argv);
  if (options.help) {
    std::cout << kHelp;
    return 0;
  }
  if (options.version) {
    std::cout << "tarnwick-check " << TARNWICK_VERSION << "\n";
    return 0;
  }
  const Report report = make_silent_report(options);
  if (options.json) {
    print_json(report, std::cout);
  } else {
    print_text(report, std::cout);
  }
  return report.findings.status();
}
