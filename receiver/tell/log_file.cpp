#include "receiver/tell/log_file.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "receiver/base/own_files.h"

LogFile::LogFile(const std::string& path) : path_(path) {
  std::string why;
  folder_ = open_folder(split_path(path).folder, false, why);
  if (!folder_) {
    error_ = "can't open the folder of " + path + ": " + why;
    return;
  }
  (void)reopen();  // error() tells
}

bool LogFile::reopen() {
  const std::string name = split_path(path_).name;
  error_ = why_not_ours(folder_.get(), name);
  Fd file;
  if (error_.empty()) {
    file = open_own(folder_.get(), name, O_WRONLY | O_APPEND);
    if (!file && errno == ENOENT) {
      file = Fd(openat(folder_.get(), name.c_str(),
                       O_WRONLY | O_APPEND | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    }
    if (!file) error_ = std::strerror(errno);
  }
  if (file) file_ = std::move(file);
  if (!error_.empty()) error_ = "can't open " + path_ + ": " + error_;
  return error_.empty();
}
