// How an owner serves requests and detaches, and how a controller makes them.
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "ground/owners.h"
#include "proc/lock_file.h"
#include "proc/proc.h"
#include "softlib/file_system.h"
#include "softlib/pause.h"
#include "softlib/system_log.h"
#include "state/console.h"

namespace {

constexpr std::uint32_t kControllerPollUs = 100'000;
constexpr std::uint32_t kFrozenPollUs = 200'000;
constexpr std::uint32_t kWaitPollUs = 10'000;
constexpr std::uint32_t kUntimedGraceUs = 300'000;
constexpr unsigned kPollsPerSecond = 10;

void set_bit(std::uint16_t& word, std::uint16_t bit) {
  word = static_cast<std::uint16_t>(word | bit);
}

void clear_bit(std::uint16_t& word, std::uint16_t bit) {
  word = static_cast<std::uint16_t>(word & ~bit);
}

/// Lets the process at the other end of the pair return from await().
void let_go_on(const Fd& end) { (void)send(end.get(), "", 1, MSG_NOSIGNAL); }

/// Waits until the process at the other end of the pair calls let_go_on(), closes its end
/// or dies.
void await(const Fd& end) {
  pollfd said{end.get(), POLLIN, 0};
  if (end) (void)poll(&said, 1, -1);
}

}  // namespace

void Proc::daemon_mode() {
  std::cout.flush();  // else the text would be written once more by the child
  int ends[2] = {-1, -1};
  (void)socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends);  // without it nobody waits
  Fd here(ends[0]);
  Fd there(ends[1]);
  const pid_t child = fork();
  if (child < 0) {
    err_system(std::string("can't start a daemon: ") + std::strerror(errno));
    std::cout << "Error: Start Daemon failed (" << std::strerror(errno) << ")\n";
    std::exit(-1);
  }
  if (child > 0) {
    data.pid = child;
    flock_write(&data);
    there = Fd();
    let_go_on(here);
    say(2) << "pid potomok - " << child << std::endl;
    await(here);  // its record undoes a request made before it
    std::exit(0);
  }
  here = Fd();
  await(there);  // likewise
  umask(0);
  setsid();
  flock_close();
  silence_console();
  for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) close(standard);
  data.pid = getpid();
  flock_open();
  const std::optional<shared_data> asked = read_record(fd);
  if (asked && asked->pid == data.pid) data = *asked;  // a request made meanwhile
  flock_write(&data);
  // closes what the caller left open, and `there`, which lets the foreground process end
  closefrom(STDERR_FILENO + 1);
  (void)there.release();
}

bool Proc::terminated() {
  frozen();
  flock_read(&data);
  return data.stop != 0;
}

void Proc::frozen() {
  flock_read(&data);
  if ((data.command & SD_FREEZE) == 0) return;
  set_bit(data.status, SD_FROZEN);
  flock_write(&data);
  while ((data.command & SD_FREEZE) != 0 && data.stop == 0) {
    pause_us(kFrozenPollUs);
    flock_read(&data);
    if ((data.command & SD_FREEZE) == 0) {
      clear_bit(data.status, SD_FROZEN);
      flock_write(&data);
    }
  }
}

bool Proc::if_terminated_unlock() {
  if (!terminated()) return false;
  clear_lock();
  return true;
}

bool Proc::freez(unsigned short seconds) {
  flock_read(&data);
  set_bit(data.command, SD_FREEZE);
  flock_write(&data);
  auto polls = static_cast<std::uint16_t>(seconds * kPollsPerSecond);
  for (; polls > 0; --polls) {
    pause_us(kControllerPollUs);
    flock_read(&data);
    if ((data.status & SD_FROZEN) != 0) return true;
  }
  clear_bit(data.command, SD_FREEZE);
  flock_write(&data);
  return false;
}

bool Proc::unfreez(unsigned short seconds) {
  flock_read(&data);
  clear_bit(data.command, SD_FREEZE);
  flock_write(&data);
  auto polls = static_cast<std::uint16_t>(seconds * kPollsPerSecond);
  for (; polls > 0; --polls) {
    pause_us(kControllerPollUs);
    flock_read(&data);
    if ((data.status & SD_FROZEN) == 0) return true;
  }
  return false;
}

void Proc::terminate() {
  shared_data record;
  if (!flock_read(&record)) record = data;  // the file holds no whole record
  record.stop = 1;
  set_bit(record.command, SD_TERMINATE);
  flock_write(&record);
}

bool Proc::wait_terminated(int ms) const {
  const bool unlimited = ms == 0;
  for (; unlimited || ms > 0; ms -= unlimited ? 0 : 10) {
    if (!is_still_running(data.pid)) return true;
    pause_us(kWaitPollUs);
  }
  return false;
}

bool Proc::kill_process(int pid) { return names_one_process(pid) && kill(pid, SIGKILL) == 0; }

/// True if the lock file is gone, or names another copy.
bool Proc::owner_let_go() const {
  if (!file_exists(lock_name)) return true;
  const std::optional<int> now = recorded_pid(lock_name);
  return now && *now != data.pid;
}

bool Proc::terminate_wait(int ms) {
  terminate();
  if (ms == 0) {
    pause_us(kUntimedGraceUs);
  } else if (wait_terminated(ms)) {
    return true;
  }
  if (owner_let_go()) return true;
  if (kill_process(data.pid)) {
    clear_lock_of(data.pid);
    return true;
  }
  return owner_let_go();
}
