#include "frame/run_modes.h"
#include "frame/start_up.h"
#include "proc/proc.h"
#include "state/settings.h"

int main(int argc, char** argv) {
  occupy_standard_descriptors();
  load_settings(argc, argv);
  announce_start();
  Proc lock(settings.prg_name);
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
