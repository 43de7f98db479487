// The modes that deal with a copy that is running: stop it, or hold it while
// the trash journal is sent.
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <utility>

#include "frame/run_modes.h"
#include "scan/scan_list.h"
#include "send/send_file.h"
#include "send/socket.h"
#include "softlib/privileges.h"
#include "softlib/system_log.h"
#include "state/console.h"
#include "state/scan_folder.h"
#include "state/settings.h"
#include "wire/wire_format.h"

namespace {

constexpr int kGraceMs = 1000;
constexpr unsigned short kHandshakeSeconds = 10;

/// The lock through which another copy was frozen, until it is thawed.
Proc* frozen_through = nullptr;

/// Thaws the other copy if it is still frozen; returns true if that goes on. Also
/// called at exit, since a bad address or a missing privilege ends the process deep
/// below the frame.
bool thaw_other() {
  Proc* lock = std::exchange(frozen_through, nullptr);
  return lock == nullptr || lock->unfreez(kHandshakeSeconds);
}

bool freeze_other(Proc& lock) {
  std::cout << "Already running! trying to freez..." << std::endl;
  if (!lock.freez(kHandshakeSeconds)) {
    err_system("the running copy did not pause");
    std::cout << "Error! Not frozzen!" << std::endl;
    return false;
  }
  frozen_through = &lock;
  std::signal(SIGPIPE, SIG_IGN);  // a closed pipe must not end us before the other copy is thawed
  std::atexit([] { (void)thaw_other(); });  // a failure can't be reported any more
  std::cout << "OK!  frozzen!" << std::endl;
  return true;
}

/// Lets the other copy go on and tells how that went.
bool unfreeze_other() {
  std::cout << "Trying to unfreez..." << std::endl;
  const bool thawed = thaw_other();
  if (!thawed) err_system("the running copy did not go on");
  std::cout << (thawed ? "OK!  unfrozzen!" : "Error! Not unfrozzen!") << std::endl;
  return thawed;
}

/// Sends the journal to the receiver of the first scan folder. The journal stays.
bool send_journal() {
  make_scan_list();
  if (scan_list.empty()) {
    err_system("the trash journal has no receiver");
    std::cout << "The scan list is empty: the trash journal has no receiver." << std::endl;
    return false;
  }
  cur_folder = &scan_list.front();
  settings.trash_active = 0;  // the journal itself does not go to the trash
  const bool sent =
      SendFile(settings.trash_path + "/" + settings.trash_log, "", kKindTrashJournal) == kSent;
  if (!sent) err_system("the trash journal was not sent");
  return sent;
}

}  // namespace

int run_trash_journal(Proc& lock) {
  const bool frozen_other = lock.is_already_run();
  if (frozen_other && !freeze_other(lock)) return after_pause(kRefused);
  if (send_open() != 0) {
    std::cout << "Can't open socket!" << std::endl;
    frozen_through = nullptr;
    (void)lock.unfreez(kHandshakeSeconds);  // the exit status is that of the socket
    return after_pause(kRefused);
  }
  drop_network_admin();
  const bool sent = send_journal();
  send_close();
  if (frozen_other) {
    const bool has_receiver = !scan_list.empty();
    return after_pause(unfreeze_other() && has_receiver ? EXIT_SUCCESS : kRefused);
  }
  lock.clear_lock();
  return after_pause(sent ? EXIT_SUCCESS : kRefused);
}

int run_stop(Proc& lock) {
  if (!lock.is_already_run()) {
    std::cout << "nothing to stop!" << std::endl;
    lock.clear_lock();
    return after_pause(EXIT_SUCCESS);
  }
  std::cout << "Already running! trying to stop..." << std::endl;
  if (!lock.terminate_wait(kGraceMs)) {
    err_system("the running copy can't be stopped");
    std::cout << "ERROR!  is not stoped!" << std::endl;
    return after_pause(kRefused);
  }
  std::cout << "OK!  stoped!" << std::endl;
  lock.clear_lock_of(lock.owner());  // a new copy may have taken it already
  return after_pause(EXIT_SUCCESS);
}
