#include "proc/proc.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "proc/lock_file.h"
#include "softlib/file_system.h"
#include "softlib/system_log.h"
#include "state/console.h"

Proc* pplock = nullptr;

Proc::Proc(const std::string& name, const std::string& run_dir)
    : lock_name(lock_path(name, run_dir)) {
  start();
}

std::string Proc::lock_path(const std::string& name, const std::string& run_dir) {
  // without a folder the path must be one that can't be opened, and not "/NAME.lock"
  return run_dir.empty() ? "" : run_dir + "/" + name + ".lock";
}

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
  if (!names_one_process(pid)) return false;
  struct stat st {};
  return stat(("/proc/" + std::to_string(pid)).c_str(), &st) == 0 || errno != ENOENT;
}

void Proc::clear_lock() {
  flock_close();
  // a file that stays is stale, and the next start takes it over
  if (file_exists(lock_name)) (void)std::remove(lock_name.c_str());
}

void Proc::clear_lock_of(int owner) {
  flock_close();
  // a file that stays is stale, and the next start takes it over
  if (recorded_pid(lock_name) == owner) (void)std::remove(lock_name.c_str());
}

bool Proc::flock_open() {
  fd = open_lock_file(lock_name).release();
  if (fd < 0) {
    std::cerr << "openclose: Cannot open file '" << lock_name << "'\n";
    err_system("can't open lock file " + lock_name);
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
  const std::optional<shared_data> whole = read_record(fd);
  if (whole) *record = *whole;
  return whole.has_value();
}

bool Proc::flock_write(const shared_data* record) const {
  if (!fd_is_open) return false;
  return pwrite(fd, record, sizeof *record, 0) == static_cast<ssize_t>(sizeof *record);
}
