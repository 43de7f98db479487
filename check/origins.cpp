#include "check/origins.h"

namespace {

const std::map<std::string, std::string> kMeanings = {
    {"-a", "local character set"},
    {"-b", "leave names that begin so"},
    {"-c", "length of a cycle, s"},
    {"-d", "passes over a file"},
    {"-e", "leave this extension"},
    {"-f", "folder to scan"},
    {"-g", "log file"},
    {"-i", "receiver"},
    {"-j", "scan list"},
    {"-k", "move sent files to the trash"},
    {"-l", "keep a log"},
    {"-m", "mode"},
    {"-o", "configuration file"},
    {"-p", "port"},
    {"-q", "datagrams between service packets"},
    {"-r", "pause between passes, s or half-seconds"},
    {"-s", "line speed, Mbit/s"},
    {"-t", "largest datagram, bytes"},
    {"-u", "header packets in each pass"},
    {"-v", "console text"},
    {"-w", "not used"},
    {"-x", "leave files this young, s"},
    {"-y", "trash folder"},
    {"-z", "leave empty files"},
    {"--metrics", "file of metrics"},
    {"--repair", "repair parts, percent"},
    {"--run-dir", "folder of the lock file"},
    {"--seal", "seal behind every file"},
    {"--send-buffer", "send buffer, bytes; 0 forces 16 MiB"},
    {"--sign", "key that signs the seals"},
};

}  // namespace

std::string place_of(const Word& word) {
  if (word.file.empty()) return "argument " + std::to_string(word.number);
  return word.file + ", line " + std::to_string(word.number);
}

std::map<std::string, Word> deciding_words(const ReadWords& words) {
  std::map<std::string, Word> deciding;
  for (const auto* part : {&words.config, &words.command_line}) {
    for (const Word& word : *part) {
      if (word.heard != Heard::kSet) continue;
      deciding[word.option] = word;
      if (word.option == "--repair" || word.option == "--sign") deciding["--seal"] = word;
    }
  }
  return deciding;
}

std::vector<Origin> origins_of_settings(const ReadWords& words) {
  const std::map<std::string, Word> deciding = deciding_words(words);
  std::vector<Origin> origins;
  for (const InForce& setting : settings_in_force()) {
    const auto word = deciding.find(setting.option);
    const auto meaning = kMeanings.find(setting.option);
    origins.push_back({setting.option, meaning == kMeanings.end() ? "" : meaning->second,
                       setting.value, word == deciding.end() ? "default" : place_of(word->second)});
  }
  return origins;
}
