// What the operator and the service manager are told.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

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
    EXPECT_EQ(0, pipe2(ends, O_CLOEXEC | O_NONBLOCK));
    from = Fd(ends[0]), to = Fd(ends[1]);
    setenv("TZ", "UTC-3", 1), tzset();
    record.udata_size = 1400, record.parts = 2000, record.size = 2000 * 1380, record.name = "f";
    record.why = "silent", record.delivered_to = "/k/f";
    for (int part = 1; part < 2000; part += 2) record.missing += "," + std::to_string(part);
    record.missing.erase(0, 1);
  }
  ~Told() override { unsetenv("JOURNAL_STREAM"); }
  std::string line(bool json) {
    Outlet outlet(to.get());
    Events(json, outlet, outlet).incomplete(record);
    char text[4096];
    const ssize_t size = read(from.get(), text, sizeof text);
    return {text, text + std::max<ssize_t>(size, 0)};
  }
  /// What `tell` has told, without the times.
  std::string told(const std::function<void(Events&)>& tell) {
    Outlet outlet(to.get());
    Events events(false, outlet, outlet);
    tell(events);
    char text[4096];
    const ssize_t size = read(from.get(), text, sizeof text);
    std::istringstream lines(std::string(text, text + std::max<ssize_t>(size, 0)));
    std::string all;
    for (std::string each; std::getline(lines, each);) all += each.substr(26) + "\n";
    return all;
  }
  static constexpr char kMissing[] =
      "0-1379, 2760-4139, 5520-6899, 8280-9659, 11040-12419, ... 995 more";
  Fd from, to;
  TransferRecord record;
};

TEST_F(Told, EachLineHasItsTimeOrForTheJournalItsLevelAndIsShort) {
  EXPECT_EQ("2001-09-09T01:46:40.250Z", rfc3339_utc(1e9 + 0.25));
  EXPECT_EQ("2001-09-09T04:46:40+03:00", rfc3339_local(1e9 + 0.25));
  const std::string text = std::string("INCOMPLETE f: silent, missing bytes ") + kMissing +
                           ", kept as /k/f (all in its .missing.txt)\n";
  const std::string line_of_time = line(false);
  EXPECT_EQ(text, line_of_time.substr(26));
  EXPECT_EQ("+03:00 ", line_of_time.substr(19, 7));
  const auto json = nlohmann::json::parse(line(true));
  EXPECT_EQ(kMissing, json["missing_bytes"]);
  EXPECT_EQ(1000, json["missing_ranges"]);
  EXPECT_EQ(24U, json["time"].get<std::string>().size());
  struct stat pipe {};
  ASSERT_EQ(0, fstat(to.get(), &pipe));
  const std::string stream = std::to_string(pipe.st_dev) + ":" + std::to_string(pipe.st_ino);
  setenv("JOURNAL_STREAM", (stream + "0").c_str(), 1);
  EXPECT_EQ('2', line(false)[0]) << "another stream";
  setenv("JOURNAL_STREAM", stream.c_str(), 1);
  EXPECT_EQ("<4>" + text, line(false));
}

TEST_F(Told, EveryEventHasItsText) {
  record.size = 3, record.missing = "", record.asked_for = "a/f", record.folder = "a";
  EXPECT_EQ("listening at :1, files go to in\n", told([](Events& e) { e.listening(":1", "in"); }));
  EXPECT_EQ("delivered /k/f (3 bytes)\n", told([&](Events& e) { e.delivered(record); }));
  record.why = "too\nlarge", record.repaired = 2, record.proof = "digest";
  record.collided = true, record.differing = 4;
  EXPECT_EQ(
      "delivered /k/f (3 bytes, 2 parts repaired, proved: digest)\n"
      "warning: a/f has come from another path: this file got the name /k/f\n"
      "warning: a/f: 4 repeated parts held other bytes than what is stored\n",
      told([&](Events& e) { e.delivered(record); }));
  EXPECT_EQ("REFUSED a/f: too\\x0Alarge\n", told([&](Events& e) { e.refused(record); }));
  record.missing = "1", record.size = 2760, record.delivered_to = "", record.why = "w";
  EXPECT_EQ("INCOMPLETE a/f: w, missing bytes 0-1379\n",
            told([&](Events& e) { e.incomplete(record); }));
  record.delivered_to = "/k", record.missing = "";
  EXPECT_EQ("INCOMPLETE a/f: w, kept as /k\n", told([&](Events& e) { e.incomplete(record); }));
  EXPECT_EQ("warning: a\\x1B\n", told([](Events& e) { e.warning("a\x1B"); }));
  EXPECT_EQ("ended after 7 files\n", told([](Events& e) { e.ended(7); }));
  Metrics m;
  m.delivered = 1, m.incomplete = 2, m.refused = 3, m.open_transfers = 4, m.missing_parts = 5;
  m.datagrams = 6, m.kernel_drops = 7, m.memory = 8, m.memory_dropped_datagrams = 9;
  EXPECT_EQ(
      "state: delivered=1 incomplete=2 refused=3 open_transfers=4 missing_parts=5 datagrams=6 "
      "kernel_drops=7 memory_bytes=8 memory_dropped_datagrams=9\n",
      told([&](Events& e) { e.state(m); }));
  EXPECT_EQ("", told([&](Events& e) { e.progress(record, 1, 2); })) << "it is no terminal";
}

TEST_F(Told, NoticesAreToldOnceForEachCause) {
  EXPECT_EQ(
      "warning: nothing came for 11 seconds\n"
      "warning: nothing came for 15 seconds\n",
      told([](Events& e) {
        Notices notices(e, 10, 100);
        for (const double now : {109., 110., 111.5, 130.}) notices.notice_silence(now);
        notices.heard(130);
        for (const double now : {140., 145., 146.}) notices.notice_silence(now);
        Notices never(e, 0, 100);
        never.notice_silence(9e9);
      }));
  const std::string full =
      "warning: disk or ledger do not keep up and the memory (--memory) is "
      "full: dropped ";
  EXPECT_EQ("warning: this machine does not keep up: the kernel dropped datagrams 5 times\n" +
                full +
                "7 datagrams, of 2 newly dropped transfers and of earlier ones\n"
                "warning: this machine does not keep up: the kernel dropped datagrams 3 times\n" +
                full + "1 datagrams, of 0 newly dropped transfers and of earlier ones\n",
            told([](Events& e) {
              Notices notices(e, 0, 100);
              for (const IntakeCounts& counts : {IntakeCounts{9, 0, 0, 0},
                                                 {9, 0, 0, 5},
                                                 {9, 7, 2, 5},
                                                 {9, 7, 2, 5},
                                                 {9, 7, 2, 8},
                                                 {9, 8, 2, 8}})
                notices.notice_drops(counts);
            }));
  EXPECT_EQ(
      "warning: 3 parts could not be written (No space left on device): they are missing until a "
      "later pass\nwarning: 2 parts could not be written (Input/output error): they are missing "
      "until a later pass\n",
      told([](Events& e) {
        Notices notices(e, 0, 100);
        notices.notice_unwritten(0, 100);
        notices.unwritten(ENOSPC);
        notices.notice_unwritten(3, 100);
        notices.unwritten(EIO);
        for (const double now : {104.9, 105., 106., 120.}) notices.notice_unwritten(5, now);
      }));
}

TEST(ServiceManager, IsToldOfTheStartTheEndAndHalfTheWatchdogsTime) {
  sockaddr_un at{AF_UNIX, "\0told_test"};
  const Fd heard(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 10);
  ASSERT_EQ(0, bind(heard.get(), reinterpret_cast<sockaddr*>(&at), size));
  const auto tell_all = [](const char* watchdog_pid) {
    setenv("WATCHDOG_PID", watchdog_pid, 1);
    ServiceManager manager;
    manager.ready();
    for (const double now : {100.0, 100.9, 101.1, 101.2}) manager.alive(now);
    manager.stopping();
  };
  setenv("WATCHDOG_USEC", "2000000", 1);
  setenv("NOTIFY_SOCKET", "@told_test", 1);
  tell_all(std::to_string(getpid()).c_str());
  tell_all(std::to_string(getpid() + 1).c_str());
  setenv("NOTIFY_SOCKET", "@nobody", 1);
  tell_all(std::to_string(getpid() + 1).c_str());
  std::string all;
  char text[99];
  for (ssize_t got; (got = recv(heard.get(), text, sizeof text, 0)) > 0; all += ' ')
    all.append(text, text + got);
  EXPECT_EQ("READY=1 WATCHDOG=1 WATCHDOG=1 STOPPING=1 READY=1 STOPPING=1 ", all);
  for (const char* name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"}) unsetenv(name);
}

}  // namespace
