#include "check/report.h"

#include "check/folders.h"
#include "check/names.h"
#include "check/network.h"
#include "check/own_files.h"
#include "check/privileges.h"
#include "check/running.h"
#include "check/values.h"
#include "check/words.h"
#include "frame/command_line.h"
#include "frame/config_file.h"
#include "frame/start_up.h"
#include "send/code_page.h"
#include "send/seal.h"
#include "softlib/file_system.h"
#include "state/settings.h"

namespace {

/// Reads the settings as load_settings() of the sender does, but writes nothing and does not
/// end the process.
ReadWords read_settings(const CheckOptions& options, std::string& config, Findings& findings) {
  ReadWords words;
  get_lcs();
  name_program(options.program.c_str());
  (void)LoadConfig(false, [&](const Word& word) {  // `config` tells
    if (word.heard == Heard::kOpened) config = word.file;
    words.config.push_back(word);
  });
  std::vector<std::string> texts = options.arguments;
  texts.insert(texts.begin(), options.program);
  std::vector<char*> argv;
  argv.reserve(texts.size());
  for (std::string& text : texts) argv.push_back(text.data());
  const auto hear = [&](const Word& word) { words.command_line.push_back(word); };
  const ReadEnd end = read_command_line(static_cast<int>(argv.size()), argv.data(), hear);
  if (end == ReadEnd::kNoConfig)
    findings.stop("configuration",
                  "the configuration file " + settings.config_name + " can't be opened");
  if (settings.refusal.empty() && settings.mode != kStop) settings.refusal = prepare_seals();
  return words;
}

bool scans() { return settings.mode != kStop && settings.mode != kTrashJournal; }

}  // namespace

Total total_of(const std::vector<Verdict>& files) {
  Total total;
  for (const Verdict& file : files) {
    if (!file.goes) continue;
    ++total.files;
    total.bytes += file.size;
    total.seconds += file.seconds;
  }
  return total;
}

Report make_report(const CheckOptions& options) {
  Report report;
  Findings& findings = report.findings;
  std::string config;
  const ReadWords words = read_settings(options, config, findings);
  report.program = options.program;
  report.folder = get_cur_dir();
  report.settings = origins_of_settings(words);
  check_words(words, findings);
  check_values(words, findings);
  check_config(config, findings);
  check_running(config, findings);
  check_log(findings);
  check_metrics(findings);
  if (settings.mode == kStop) return report;  // it opens no folder and no socket
  check_socket(findings);
  check_input(findings);
  std::vector<scan_folder> folders = read_folders(findings);
  check_network(folders, deciding_words(words).count("-i") > 0, findings);
  check_charset(findings);
  if (!scans()) return report;
  check_folders(folders, own_paths(config), findings);
  check_trash(folders, findings);
  check_open_file_search(findings);
  report.has_files = options.files;
  report.files = walk_dry(folders, options.files, slowest_card(folders), findings);
  return report;
}
