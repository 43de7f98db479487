// How an owner serves requests and detaches, and how a controller makes them.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "proc/proc.h"
#include "softlib/file_system.h"
#include "softlib/pause.h"
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

}  // namespace

void Proc::daemon_mode() {
  std::cout.flush();  // else the text would be written once more by the child
  const pid_t child = fork();
  if (child < 0) {
    std::cout << "Error: Start Daemon failed (" << std::strerror(errno) << ")\n";
    std::exit(-1);
  }
  if (child > 0) {
    data.pid = child;
    flock_write(&data);
    say(2) << "pid potomok - " << child << std::endl;
    std::exit(0);
  }
  umask(0);
  setsid();
  flock_close();
  silence_console();
  for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) close(standard);
  data.pid = getpid();
  flock_open();
  flock_write(&data);
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

bool Proc::kill_process(unsigned int pid) { return kill(static_cast<pid_t>(pid), SIGKILL) == 0; }

bool Proc::terminate_wait(int ms) {
  terminate();
  if (ms == 0) {
    pause_us(kUntimedGraceUs);
  } else if (wait_terminated(ms)) {
    return true;
  }
  if (!file_exists(lock_name)) return true;  // the owner has let go of it
  if (kill_process(static_cast<unsigned int>(data.pid))) {
    clear_lock();
    return true;
  }
  return !file_exists(lock_name);
}
