// Text to a pipe that is read late, or not at all.
#include "receiver/tell/outlet.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

namespace {

struct OutletTest : testing::Test {
  OutletTest() {
    int ends[2];
    EXPECT_EQ(0, pipe2(ends, O_CLOEXEC));
    reader = Fd(ends[0]), writer = Fd(ends[1]);
  }
  /// Reads until there is nothing more, letting the outlet go on meanwhile.
  std::string read_all(Outlet& outlet) const {
    std::string text;
    fcntl(reader.get(), F_SETFL, O_NONBLOCK);
    char bytes[4096];
    for (ssize_t got; (got = read(reader.get(), bytes, sizeof bytes)) > 0; outlet.flush())
      text.append(bytes, bytes + got);
    return text;
  }
  Fd reader, writer;
  const std::string line = std::string(999, 'x') + "\n";
};

TEST_F(OutletTest, NeverWaitsAndCountsWhatItDropped) {
  const int next = dup(writer.get());
  close(next);
  Outlet outlet(writer.get());
  EXPECT_EQ(FD_CLOEXEC, fcntl(next, F_GETFD)) << "its own descriptor";
  for (int i = 0; i < 3000; ++i) outlet.put(line);  // three times what it holds; would hang
  EXPECT_LT(1500U, outlet.dropped());
  EXPECT_GT(2000U, outlet.dropped());
  EXPECT_FALSE(outlet.is_clear());
  EXPECT_EQ((3000 - outlet.dropped()) * line.size(), read_all(outlet).size());
  EXPECT_TRUE(outlet.is_clear());
  outlet.put("again\n");
  EXPECT_EQ("again\n", read_all(outlet));
  EXPECT_EQ(0, fcntl(writer.get(), F_GETFL) & O_NONBLOCK) << "others may share it";
}

TEST_F(OutletTest, GoesOnWithoutAReaderAndDrainsAtTheEnd) {
  (void)std::signal(SIGPIPE, SIG_IGN);
  Outlet outlet(writer.get());
  for (int i = 0; i < 500; ++i) outlet.put(line);
  outlet.drain(std::chrono::milliseconds(30));  // nobody reads: gives up
  reader = Fd();
  outlet.put(line);
  outlet.drain(std::chrono::hours(1));  // nothing is left to wait for
  EXPECT_EQ(0U, outlet.dropped());
}

}  // namespace
