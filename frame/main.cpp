#include <iostream>

#include "frame/run_modes.h"
#include "frame/start_up.h"
#include "state/settings.h"

int main(int argc, char** argv) {
  load_settings(argc, argv);
  announce_start();
  Proc lock(settings.prg_name);
  switch (settings.mode) {
    default:
      return run_scan_loop(lock);
  }
}
