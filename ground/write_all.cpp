#include "ground/write_all.h"

#include <unistd.h>

#include <cerrno>

bool write_all(int fd, std::string_view text) {
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t put = write(fd, text.data() + done, text.size() - done);
    if (put < 0 && errno != EINTR) return false;
    if (put > 0) done += static_cast<std::size_t>(put);
  }
  return true;
}
