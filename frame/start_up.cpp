#include "frame/start_up.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <iostream>

#include "frame/auto_version.h"
#include "frame/command_line.h"
#include "frame/config_file.h"
#include "scan/counters.h"
#include "scan/scan_list.h"
#include "send/code_page.h"
#include "send/socket.h"
#include "softlib/file_system.h"
#include "softlib/log.h"
#include "softlib/path.h"
#include "state/console.h"
#include "state/settings.h"

namespace {

void name_program(const char* path) {
  prg_get_name_dir(path, settings.prg_name, settings.prg_dir);
  settings.prg_name = get_file_name_noext(settings.prg_name);
}

/// A walk holds a descriptor for every level of folders it is in, and the usual
/// limit of 1,024 is less than a path can be deep.
void allow_deep_walks() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  (void)setrlimit(RLIMIT_NOFILE, &limit);  // deeper folders then count as left
}

void print_banner() {
  say(1) << "\n" << get_cur_dir() << "\n" << settings.prg_name;
  say(1) << "\nDate compilation: " << __DATE__ << "  " << __TIME__;
  say(1) << "\nVersion: " << AutoVersion::FULLVERSION_STRING;
  say(1) << "   Builds: " << AutoVersion::BUILDS_COUNT << "\n" << std::flush;
}

}  // namespace

void occupy_standard_descriptors() {
  for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    // open() gives the lowest free number, which is this one
    if (fcntl(standard, F_GETFD) < 0) (void)open("/dev/null", O_RDWR);
  }
}

void load_settings(int argc, char** argv) {
  std::srand(static_cast<unsigned int>(std::time(nullptr)));
  get_lcs();
  name_program(argc > 0 ? argv[0] : "");
  if (!LoadConfig(false) && !SaveConfig()) leave(1);
  parse_command_line(argc, argv);
}

void announce_start() {
  say(1) << "Start on LINUX system" << std::endl;
  if (settings.logs > 0 && !LogDir(settings.logs_name) && settings.mode != kStop) {
    std::cout << "\nCan't create log file:" << settings.logs_name << std::endl;
    leave(1);
  }
  print_banner();
}

bool start_sending() {
  allow_deep_walks();
  if (settings.logs != 0) {
    write_log(settings.logs_name, "Start Tarnwick Server " + str_time(true), false);
  }
  make_scan_list();
  if (send_open() == 0) return true;
  std::cout << "Can't open socket!" << std::endl;
  pause_for_message();
  return false;
}

int shut_down() {
  send_close();
  if (settings.logs != 0) {
    write_log(settings.logs_name,
              "\nsent " + std::to_string(files_count) + " files \nStop Tarnwick Server  " +
                  str_time(true) + "\n",
              false);
  }
  return EXIT_SUCCESS;
}
