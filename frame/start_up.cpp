#include "frame/start_up.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <iostream>

#include "frame/auto_version.h"
#include "frame/command_line.h"
#include "frame/config_file.h"
#include "send/code_page.h"
#include "send/seal.h"
#include "softlib/file_system.h"
#include "softlib/log.h"
#include "softlib/path.h"
#include "softlib/system_log.h"
#include "state/console.h"
#include "state/settings.h"

namespace {

void print_banner() {
  say(1) << "\n" << shown(get_cur_dir()) << "\n" << shown(settings.prg_name);
  say(1) << "\nDate compilation: " << __DATE__ << "  " << __TIME__;
  say(1) << "\nVersion: " << AutoVersion::FULLVERSION_STRING;
  say(1) << "   Builds: " << AutoVersion::BUILDS_COUNT << "\n" << std::flush;
}

}  // namespace

void occupy_standard_descriptors() {
  for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    // open() returns the lowest free number, which is this one
    if (fcntl(standard, F_GETFD) < 0) (void)open("/dev/null", O_RDWR);
  }
}

void name_program(const char* path) {
  prg_get_name_dir(path, settings.prg_name, settings.prg_dir);
  settings.prg_name = get_file_name_noext(settings.prg_name);
  name_in_system_log(settings.prg_name);
}

void load_settings(int argc, char** argv) {
  std::srand(static_cast<unsigned int>(std::time(nullptr)));
  get_lcs();
  name_program(argc > 0 ? argv[0] : "");
  if (!LoadConfig(false) && !SaveConfig()) {
    err_system("can't write the configuration file " + settings.config_name);
    leave(1);
  }
  parse_command_line(argc, argv);
  if (settings.refusal.empty() && settings.mode != kStop) settings.refusal = prepare_seals();
  if (settings.refusal.empty()) return;
  err_system(settings.refusal);
  std::cerr << settings.refusal << "\n";
  std::exit(1);
}

void announce_start() {
  say(1) << "Start on LINUX system" << std::endl;
  if (settings.logs > 0 && !LogDir(settings.logs_name) && settings.mode != kStop) {
    err_system("can't make the folder of the log " + settings.logs_name);
    std::cout << "\nCan't create log file:" << settings.logs_name << std::endl;
    leave(1);
  }
  print_banner();
}
