// The open-file test, with system calls that fail.
#include "softlib/open_files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include "ground/owners.h"
#include "tests/support.h"

static int names_error, names_before, link_error;  // one reading of names fails

ssize_t getdents64(int fd, void* to, size_t size) noexcept {
  if (names_error == 0 || names_before-- != 0) return syscall(SYS_getdents64, fd, to, size);
  errno = names_error;
  return -1;
}

ssize_t readlinkat(int fd, const char* name, char* to, size_t size) noexcept {
  if (link_error == 0) return syscall(SYS_readlinkat, fd, name, to, size);
  errno = link_error;
  return -1;
}

struct OpenFiles : testing::Test {
  TempDir dir;
  std::string path = dir.file("f");
};

TEST_F(OpenFiles, LeavesOutOneDescriptorOfOurOwnOnly) {
  const Fd own(open(path.c_str(), O_RDONLY));
  EXPECT_EQ(1, check_open_file(path));
  EXPECT_EQ(0, check_open_file(path, own.get()));
  const Fd other(open(path.c_str(), O_RDONLY));
  EXPECT_EQ(1, check_open_file(path, own.get()));
}

TEST_F(OpenFiles, CannotTellWhereSomethingFailsButForProcessesThatAreNotToBeSeen) {
  const std::tuple<int, int, int> cases[] = {{0, 0, 0},       {EIO, 0, -1},   {ENOMEM, 0, -1},
                                             {ENOENT, 0, 0},  {ESRCH, 0, 0},  {EPERM, 0, 0},
                                             {0, ENOMEM, -1}, {0, ENOENT, 0}, {0, EACCES, 0}};
  for (const auto& [names, link, answer] : cases) {
    names_error = names, names_before = 1, link_error = link;  // the first read is that of /proc
    EXPECT_EQ(answer, check_open_file(path)) << names << " " << link;
  }
  names_error = EIO, names_before = 0, link_error = 0;
  EXPECT_EQ(-1, check_open_file(path));
  names_error = 0;
}

TEST_F(OpenFiles, CannotTellWithoutADescriptorForEachFolder) {
  rlimit kept{};
  getrlimit(RLIMIT_NOFILE, &kept);
  const std::string held = path;  // a sanitizer looks into the fixture, by a descriptor
  for (const int free : {0, 1, 2}) {
    std::vector<Fd> last;
    for (int i = 0; i <= free; ++i) last.emplace_back(dup(0));
    const rlimit few{static_cast<rlim_t>(last.back().get() + 1), kept.rlim_max};
    last.resize(1);
    setrlimit(RLIMIT_NOFILE, &few);
    const int answer = check_open_file(held);
    setrlimit(RLIMIT_NOFILE, &kept);
    EXPECT_EQ(free < 2 ? -1 : 0, answer) << free;
  }
}
