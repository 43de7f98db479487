#include "receiver/check/check.h"

#include <iostream>
#include <nlohmann/json.hpp>

namespace {

void print_text(const Findings& findings) {
  for (const Weight weight : {Weight::kStop, Weight::kWarning, Weight::kNote}) {
    for (const Finding& finding : findings.all()) {
      if (finding.weight == weight)
        std::cout << name_of(weight) << ": " << finding.about << ": " << finding.text << "\n";
    }
  }
  const char* const kEnds[] = {"It would run. There is nothing to say against it.\n",
                               "It would run, with these warnings.\n", "It would not run.\n"};
  std::cout << kEnds[findings.status()];
}

void print_json(const Findings& findings) {
  nlohmann::ordered_json json{{"status", findings.status()},
                              {"findings", nlohmann::ordered_json::array()}};
  for (const Finding& finding : findings.all()) {
    json["findings"].push_back(
        {{"weight", name_of(finding.weight)}, {"about", finding.about}, {"text", finding.text}});
  }
  constexpr auto kReplace = nlohmann::ordered_json::error_handler_t::replace;
  std::cout << json.dump(2, ' ', false, kReplace) << "\n";
}

}  // namespace

int run_check(const Options& options) {
  Findings findings;
  check_place(options, findings);
  check_line(options, findings);
  if (options.json) {
    print_json(findings);
  } else {
    print_text(findings);
  }
  return findings.status();
}
