// receiver/tell/log_file.h: the file that events and warnings go to instead of the
// standard streams. It is opened anew when it was moved away (log rotation).
#pragma once

#include <string>

#include "ground/owners.h"

class LogFile {
 public:
  /// Opens `path` to append to it, or makes it (0666 less the umask). On failure error()
  /// tells: its folder is missing, or it is not a regular file of this user.
  explicit LogFile(const std::string& path);

  const std::string& error() const { return error_; }
  int fd() const { return file_.get(); }

  /// Its folder, open as long as this lasts.
  int folder() const { return folder_.get(); }

  /// Opens what has the name by now, or makes it. False, with error(), if that fails: then
  /// fd() stays what it was.
  bool reopen();

 private:
  std::string path_;
  std::string error_;
  Fd folder_;
  Fd file_;
};
