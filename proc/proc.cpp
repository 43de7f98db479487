#include "proc/proc.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "softlib/file_system.h"
#include "softlib/owners.h"
#include "state/console.h"

Proc* pplock = nullptr;

Proc::Proc(const std::string& name) : lock_name("/var/run/" + name + ".lock") { start(); }

Proc::~Proc() {
  if (fd <= 0) return;
  if (already_run) {
    flock_close();
  } else {
    clear_lock();
  }
}

bool Proc::start() {
  const bool existed = file_exists(lock_name);
  flock_open();
  already_run = false;
  say(2) << "my pid " << getpid() << std::endl;
  if (existed) {
    if (!flock_read(&data)) data.pid = 0;
    if (data.pid != 0) {
      say(1) << "already exist (locked)!!!" << std::endl;
      say(1) << "running pid " << data.pid << std::endl;
      if (is_still_running(data.pid)) {
        say(1) << "still_running!!!" << std::endl;
        already_run = true;
        return false;
      }
      say(1) << "pid " << data.pid << " is dead" << std::endl;
    }
  }
  data = shared_data{};
  data.pid = getpid();
  flock_write(&data);
  return true;
}

bool Proc::is_still_running(int pid) {
  struct stat st {};
  return stat(("/proc/" + std::to_string(pid)).c_str(), &st) == 0 || errno != ENOENT;
}

void Proc::clear_lock() {
  flock_close();
  if (file_exists(lock_name)) (void)std::remove(lock_name.c_str());  // else stale: taken over
}

void Proc::clear_own_lock() {
  flock_close();
  const Fd file(open(lock_name.c_str(), O_RDONLY | O_CLOEXEC));
  shared_data record;
  if (read(file.get(), &record, sizeof record) != static_cast<ssize_t>(sizeof record)) return;
  if (record.pid == getpid()) (void)std::remove(lock_name.c_str());  // else stale: taken over
}

bool Proc::flock_open() {
  fd = open(lock_name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) {
    std::cerr << "openclose: Cannot open file '" << lock_name << "'\n";
    std::exit(1);
  }
  fd_is_open = true;
  return true;
}

void Proc::flock_close() {
  if (fd_is_open) close(fd);
  fd = 0;
  fd_is_open = false;
}

bool Proc::flock_read(shared_data* record) const {
  if (!fd_is_open) return false;
  lseek(fd, 0, SEEK_SET);
  return read(fd, record, sizeof *record) == static_cast<ssize_t>(sizeof *record);
}

bool Proc::flock_write(const shared_data* record) const {
  if (!fd_is_open) return false;
  lseek(fd, 0, SEEK_SET);
  return write(fd, record, sizeof *record) == static_cast<ssize_t>(sizeof *record);
}
