#include "frame/command_line.h"

#include <iostream>
#include <string>

#include "frame/config_file.h"
#include "frame/options.h"
#include "softlib/system_log.h"
#include "state/console.h"
#include "state/settings.h"

namespace {

bool is_option(const std::string& argument) {
  return argument.size() >= 2 && argument[0] == '-' && argument[1] >= 'a' && argument[1] <= 'z';
}

/// The program's name in the usage text: "\" goes before "/", whichever is
/// last in the path.
std::string usage_name(const std::string& path) {
  const std::size_t backslash = path.rfind('\\');
  const std::size_t at = backslash != std::string::npos ? backslash : path.rfind('/');
  return path.substr(at + 1);
}

/// Applies `argument`, but does not read the file that -o names.
[[noreturn]] void end_without_config() {
  err_system("can't read the configuration file " + settings.config_name);
  std::cout << "\nCan't load config file " << settings.config_name << std::endl;
  leave(1);
}

void print_usage(const char* argv0) {
  std::cout << "\nusage: " << usage_name(argv0 != nullptr ? argv0 : "")
            << "[-x:optins ... ]\n"
               "\noptions:"
               "\n-v:  verboze level(0 - none (default)"
               "\n     -v:1"
               "\n-l:  logs (0 - none (default)"
               "\n     -l:1"
               "\n-m:  mode (0-one scan (default), 1-cycle, 2 - daemon, 3 - stop daemon"
               "\n     -m:1"
            << std::endl
            << "\n-f:  path to scan "
               "\n     -f:scan_dir"
            << std::endl
            << "\n-i:  ip address"
               "\n     -i:127.0.0.1"
               "\n-p:  port"
               "\n     -p:55001"
               "\n-u:  head send repeat"
               "\n     -u:5"
               "\n-d:  data send repeat"
               "\n     -d:2"
               "\n-s:  speed"
               "\n     -s:10  10 mBit"
               "\n-w:  work dir for send"
               "\n     -w:\"PATH\""
               "\n-t:  MTU"
               "\n     -t:1400 (min 1400 ... max 65507)"
               "\n-j:  scan_list file name"
               "\n     -j:scan_folders.lst"
               "\n-c:  delay in sec before next scan "
               "\n     -c:5"
            << std::endl;
}

}  // namespace

Word apply_argument(const std::string& argument) {
  Word word = apply_long_option(argument, Place::kCommandLine);
  word.text = argument;
  if (!is_option(argument)) return word;
  const char letter = argument[1];
  if (!is_setting(letter) && letter != 'h') return word;
  word.option = std::string("-") + letter;
  word.kind = kind_of(letter);
  word.heard = argument.size() < 3 ? Heard::kNoValue : Heard::kSet;
  if (argument.size() < 3 || letter == 'h') return word;
  word.value = argument.substr(3);
  apply_setting(letter, word.value);
  return word;
}

ReadEnd read_command_line(int argc, char** argv, const WordListener& heard) {
  for (int i = 1; i < argc; ++i) {
    Word word = apply_argument(argv[i]);
    word.number = i;
    if (heard) heard(word);
    if (word.option == "-h") return ReadEnd::kUsage;
    const bool names_config = word.option == "-o" && word.heard == Heard::kSet;
    if (names_config && !LoadConfig(true, heard)) return ReadEnd::kNoConfig;
  }
  return ReadEnd::kAll;
}

void parse_command_line(int argc, char** argv) {
  const ReadEnd end = read_command_line(argc, argv);
  if (end == ReadEnd::kUsage) print_info(argv[0]);
  if (end == ReadEnd::kNoConfig) end_without_config();
}

bool answer_word(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--help") {
      print_usage(argv[0]);
      return true;
    }
    if (argument != "--version") continue;
    std::cout << "tarnwick " << TARNWICK_VERSION << std::endl;
    return true;
  }
  return false;
}

void print_info(char* argv0) {
  print_usage(argv0);
  leave(1);
}
