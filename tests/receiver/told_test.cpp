// What the operator and the service manager are told, though it be read late or not at all.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <nlohmann/json.hpp>
#include <sstream>

#include "receiver/tell/events.h"
#include "receiver/tell/notices.h"
#include "receiver/tell/service_manager.h"
#include "receiver/tell/stamp.h"

namespace {

struct Told : testing::Test {
  Told() {
    int ends[2];
    EXPECT_EQ(0, pipe2(ends, O_CLOEXEC));
    from = Fd(ends[0]), to = Fd(ends[1]);
    fcntl(from.get(), F_SETFL, O_NONBLOCK);
    setenv("TZ", "UTC-3", 1), tzset();
    record.udata_size = 1400, record.parts = 2000, record.size = 2'760'000, record.name = "f";
    record.why = "silent", record.delivered_to = "/k/f";
    for (int part = 1; part < 2000; part += 2) record.missing += "," + std::to_string(part);
    record.missing.erase(0, 1);
  }
  ~Told() override { unsetenv("JOURNAL_STREAM"); }
  using Tell = std::function<void(Events&)>;
  std::string raw(bool json, const Tell& tell) const {
    Outlet outlet(to.get());
    Events events(json, outlet, outlet);
    tell(events);
    return read_all(outlet);
  }
  /// Reads until there is nothing more, letting the outlet go on meanwhile.
  std::string read_all(Outlet& outlet) const {
    std::string text;
    char bytes[4096];
    for (ssize_t got; (got = read(from.get(), bytes, sizeof bytes)) > 0; outlet.flush())
      text.append(bytes, bytes + got);
    return text;
  }
  /// Without the times.
  std::string told(const Tell& tell) const {
    std::istringstream lines(raw(false, tell));
    std::string all;
    for (std::string each; std::getline(lines, each);) all += each.substr(26) + "\n";
    return all;
  }
  Fd from, to;
  const std::string line = std::string(999, 'x') + "\n";
  TransferRecord record;
  const Tell incomplete = [this](Events& e) { e.incomplete(record); };
  const Tell delivered = [this](Events& e) { e.delivered(record); };
};

TEST_F(Told, EachLineHasItsTimeOrForTheJournalItsLevelAndIsShort) {
  EXPECT_EQ("2001-09-09T01:46:40.250Z", rfc3339_utc(1e9 + 0.25));
  EXPECT_EQ("2001-09-09T04:46:40+03:00", rfc3339_local(1e9 + 0.25));
  const std::string missing = "0-1379, 2760-4139, 5520-6899, 8280-9659, 11040-12419, ... 995 more";
  const std::string text = "INCOMPLETE f: silent, missing bytes " + missing +
                           ", kept as /k/f (all in its .missing.txt)\n";
  EXPECT_EQ("+03:00 " + text, raw(false, incomplete).substr(19));
  const auto json = nlohmann::json::parse(raw(true, incomplete));
  EXPECT_EQ(missing, json["missing_bytes"]);
  EXPECT_EQ(1000, json["missing_ranges"]);
  EXPECT_EQ(24U, json["time"].get<std::string>().size());
  struct stat pipe {};
  ASSERT_EQ(0, fstat(to.get(), &pipe));
  const std::string stream = std::to_string(pipe.st_dev) + ":" + std::to_string(pipe.st_ino);
  setenv("JOURNAL_STREAM", (stream + "0").c_str(), 1);
  EXPECT_EQ('2', raw(false, incomplete)[0]) << "another stream";
  setenv("JOURNAL_STREAM", stream.c_str(), 1);
  EXPECT_EQ("<4>" + text, raw(false, incomplete));
  EXPECT_EQ("<6>ended after 7 files\n", raw(false, [](Events& e) { e.ended(7); }));
}

TEST_F(Told, EventsNameWhatIsUnusual) {
  record.size = 3, record.missing = "", record.asked_for = "a/f", record.folder = "a";
  EXPECT_EQ("delivered /k/f (3 bytes)\n", told(delivered));
  record.why = "too\nlarge", record.repaired = 2, record.proof = "digest";
  record.collided = true, record.differing = 4;
  EXPECT_EQ(
      "delivered /k/f (3 bytes, 2 parts repaired, proved: digest)\n"
      "warning: a/f has come from another path: this file got the name /k/f\n"
      "warning: a/f: 4 repeated parts held other bytes than what is stored\n",
      told(delivered));
  EXPECT_EQ("REFUSED a/f: too\\x0Alarge\n", told([&](Events& e) { e.refused(record); }));
  EXPECT_EQ("INCOMPLETE a/f: too\\x0Alarge, kept as /k/f\n", told(incomplete));
  record.missing = "1", record.size = 2760, record.delivered_to = "";
  EXPECT_EQ("INCOMPLETE a/f: too\\x0Alarge, missing bytes 0-1379\n", told(incomplete));
  EXPECT_EQ("warning: a\\x1B\n", told([](Events& e) { e.warning("a\x1B"); }));
  EXPECT_EQ("", told([&](Events& e) { e.progress(record, 1, 2); })) << "it is no terminal";
}

TEST_F(Told, WhatCouldNotBeWrittenIsToldEveryFiveSeconds) {
  const std::string unwritten = told([](Events& e) {
    Notices notices(e, 0, 100);
    notices.notice_unwritten(0, 100);
    notices.unwritten(ENOSPC);
    notices.notice_unwritten(3, 100);
    notices.unwritten(EIO);
    for (const double now : {104.9, 105., 106., 120.}) notices.notice_unwritten(5, now);
  });
  const std::string missing = "they are missing until a later pass\n";
  EXPECT_EQ("warning: 3 parts could not be written (No space left on device): " + missing +
                "warning: 2 parts could not be written (Input/output error): " + missing,
            unwritten);
}

TEST_F(Told, NeverWaitsAndCountsWhatItDropped) {
  const int next = dup(to.get());
  close(next);
  Outlet outlet(to.get());
  EXPECT_EQ(FD_CLOEXEC, fcntl(next, F_GETFD)) << "its own descriptor";
  for (int i = 0; i < 3000; ++i) outlet.put(line);  // three times what it holds; would hang
  EXPECT_LT(1500U, outlet.dropped());
  EXPECT_GT(2000U, outlet.dropped());
  EXPECT_FALSE(outlet.is_clear());
  EXPECT_EQ((3000 - outlet.dropped()) * line.size(), read_all(outlet).size());
  EXPECT_TRUE(outlet.is_clear());
  outlet.put("again\n");
  EXPECT_EQ("again\n", read_all(outlet));
  EXPECT_EQ(0, fcntl(to.get(), F_GETFL) & O_NONBLOCK) << "others may share it";
}

TEST_F(Told, GoesOnWithoutAReaderAndDrainsAtTheEnd) {
  (void)std::signal(SIGPIPE, SIG_IGN);
  Outlet outlet(to.get());
  for (int i = 0; i < 500; ++i) outlet.put(line);
  outlet.drain(std::chrono::milliseconds(30));  // nobody reads: gives up
  from = Fd();
  outlet.put(line);
  outlet.drain(std::chrono::hours(1));  // nothing is left to wait for
  EXPECT_EQ(0U, outlet.dropped());
}

TEST(ServiceManager, IsToldOfTheStartTheEndAndHalfTheWatchdogsTime) {
  const std::string pid = std::to_string(getpid()), name = "@told_test_" + pid;
  sockaddr_un at{AF_UNIX, {}};
  name.copy(at.sun_path, name.size());
  at.sun_path[0] = '\0';
  const Fd heard(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
  ASSERT_EQ(0, bind(heard.get(), reinterpret_cast<sockaddr*>(&at), size));
  setenv("WATCHDOG_USEC", "2000000", 1);
  for (const auto& [socket_name, watched] :
       {std::pair{name, pid}, {name, "1"}, {name, ""}, {name + "?", pid}, {"told", pid}}) {
    setenv("NOTIFY_SOCKET", socket_name.c_str(), 1);
    setenv("WATCHDOG_PID", watched.c_str(), 1);
    ServiceManager manager;
    manager.ready();
    for (const double now : {100.0, 100.9, 101.1, 101.2}) manager.alive(now);
    manager.stopping();
  }
  std::string all;
  char text[99];
  for (ssize_t got; (got = recv(heard.get(), text, sizeof text, 0)) > 0; all += ' ')
    all.append(text, text + got);
  EXPECT_EQ(
      "READY=1 WATCHDOG=1 WATCHDOG=1 STOPPING=1 READY=1 STOPPING=1 "
      "READY=1 WATCHDOG=1 WATCHDOG=1 STOPPING=1 ",
      all);
  for (const char* each : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"}) unsetenv(each);
}

}  // namespace
