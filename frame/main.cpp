#include <csignal>
#include <cstdlib>

#include "frame/command_line.h"
#include "frame/run_modes.h"
#include "frame/start_up.h"
#include "proc/proc.h"
#include "state/settings.h"

int main(int argc, char** argv) {
  occupy_standard_descriptors();
  // SIGUSR1 often asks a program for its state, so it must not end a run; --metrics tells it
  (void)std::signal(SIGUSR1, SIG_IGN);
  if (answer_word(argc, argv)) return EXIT_SUCCESS;
  load_settings(argc, argv);
  announce_start();
  Proc lock(settings.prg_name, settings.run_dir);
  switch (settings.mode) {
    case kTrashJournal:
      return run_trash_journal(lock);
    case kStop:
      return run_stop(lock);
    case kDaemon:
      return run_daemon(lock);
    default:
      return run_scan_loop(lock);
  }
}
