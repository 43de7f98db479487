// Names, packets, pace and transfers, with datagrams on 127.0.0.1.
#include <fstream>

#include "proc/proc.h"
#include "send/code_page.h"
#include "send/pacing.h"
#include "send/send_file.h"
#include "send/service_packet.h"
#include "send/socket.h"
#include "send/stop_check.h"
#include "send/trash.h"
#include "state/metrics.h"
#include "tests/support.h"
#include "wire/crc32.h"
#include "wire/wire_format.h"

using namespace std::string_literals;

struct Sending : StateTest {
  Sending() {
    folder.ip = "127.0.0.1";
    cur_folder = &folder;
    sockaddr_in at = receiver_address(folder);
    socklen_t len = sizeof at;
    EXPECT_EQ(0, bind(receiver.get(), reinterpret_cast<sockaddr*>(&at), len));
    getsockname(receiver.get(), reinterpret_cast<sockaddr*>(&at), &len);
    folder.port = ntohs(at.sin_port);
    sock = transmitter.get();
    EXPECT_EQ(0, connect(sock, reinterpret_cast<sockaddr*>(&at), len));
  }

  int send(const std::string& content) { return SendFile(dir.file("f", content), "", kKindFile); }

  /// What came since the last call: a part's number, 0 for a header, S and the folder's count.
  std::string received() {
    ::send(sock, "", 0, 0);  // comes last
    std::string kinds;
    unsigned char p[65536];
    for (ssize_t n; (n = recv(receiver.get(), p, sizeof p, 0)) > 0; kinds += " ") {
      const auto number = [&p](std::size_t at) { return get_le<std::uint64_t>(p + at); };
      EXPECT_EQ(n - 20, get_le<std::uint32_t>(p + kDataLenAt));
      if (number(8) != 0) payload.append(p + 20, p + n);
      if (number(0) == kServiceId) kinds += "S";
      if (number(8) == 0 && number(0) != kServiceId)
        path_crc = get_le<std::uint32_t>(p + kPathCrcAt);
      kinds += std::to_string(number(number(0) == kServiceId ? kSendCntAt : kPartNoAt));
    }
    return kinds;
  }

  Fd receiver{socket(AF_INET, SOCK_DGRAM, 0)}, transmitter{socket(AF_INET, SOCK_DGRAM, 0)};
  scan_folder folder;
  std::string payload;
  std::uint32_t path_crc = 0;  ///< of the last header packet
};

TEST_F(Sending, PacketsNamesAndIntervalsMatchTheirWorkedValues) {
  use_charset("UTF-8"), settings.udata_size = 61440;
  const file_info info{0x1122334412345678, 0x0102030405, crc32_str("123456789"), 0x6553F100, 1};
  const auto packet = build_header_packet(info, "/out/имя.日x", destination_path("in", "a/日"));
  EXPECT_EQ(
      "\x78\x56\x34\x12\x44\x33\x22\x11\0\0\0\0\0\0\0\0\x4C\0\0\0\x05\x04\x03\x02\x01\0\0\0"
      "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\0\xF0\0\0\xD9\xC6\x0B\x34\0\xF1\x53\x65\0\0\0\0\x01\0"s +
          std::string(30, '\0') + "\xE8\xEC\xFF.\0in/a/\0\0"s,
      std::string(packet.begin(), packet.end()));
  EXPECT_EQ(
      "warning: the name goes out cut: /out/имя.日x\n"
      "warning: the folder goes out cut: in/a/日, with the file /out/имя.日x\n",
      system_log);
  EXPECT_EQ(84U + 8191 + 2, build_header_packet(info, std::string(9000, 'a'), "").size());
  use_charset("no-such-set");
  bool cut = true;
  EXPECT_EQ("\xE8\x98", fname_to_send("\xE8\x98", cut));
  EXPECT_FALSE(cut);
  EXPECT_EQ("006553F100123456780000340BC6D9/a", trash_name(info) + destination_path("", "a"));
  EXPECT_EQ("00FFFFFFFF", int2hex(-1, 10));
  EXPECT_EQ(-1, crc32_str(""));
  for (const auto& [size, bits] :
       {std::pair{1400U, 11856U}, {1443U, 12200U}, {1444U, 12576U}, {65507U, 540904U}})
    EXPECT_EQ(bits, line_bits(size)) << size;
  EXPECT_EQ(5092259U, to_delay(packet_interval(61440, 95)));
  for (const double none : {0 / 0., -1., 0.}) EXPECT_EQ(0U, to_delay(none)) << none;
  EXPECT_EQ(~std::uint64_t{0}, to_delay(1e300));
}

TEST(Pacer, CountsFromTheEndOfEachWaitAndDoesNotWaitForASteppedClock) {
  Pacer pacer(10, 100);
  const struct {
    std::uint64_t now;
    bool may_send;
  } looks[] = {
      {100, false}, {109, false},  {110, true},                // one interval after the beginning
      {110, false}, {119, false},  {145, true},                // late
      {150, false}, {154, false},  {155, true},                // does not hurry the next
      {50, false},  {59, false},   {60, true},   {69, false},  // set back
      {1000, true}, {1009, false}, {1010, true},               // set forward
  };
  for (const auto& look : looks) EXPECT_EQ(look.may_send, pacer.may_send(look.now)) << look.now;
}

TEST_F(Sending, SendsHeadersAndPartsInEveryPassAndCountsThem) {
  const std::string content = std::string(1380, 'a') + std::string(1380, 'b');
  EXPECT_EQ(kSent, send(content));
  EXPECT_EQ("0 0 0 0 0 1 2 0 0 0 0 0 1 2 ", received());
  EXPECT_EQ(content + content, payload);
  EXPECT_EQ(static_cast<std::uint32_t>(crc32_str(dir.path("f"))), path_crc);
  EXPECT_EQ(Pauses(10, 10000), pauses);
  settings.send_serv = settings.head_send = settings.data_send = 1;
  EXPECT_EQ(kSent, send(content + "x"));
  EXPECT_EQ(kSent, send(""));
  EXPECT_EQ("0 S2 1 S4 2 S6 3 S8 0 S10 ", received());
  settings.send_serv = 100;
  for (all_send_cnt = folder.send_cnt = 0; all_send_cnt < 100;) serv_pack_send();
  EXPECT_EQ("S101 ", received());
  for (settings.send_serv = -1; settings.send_serv < 1; ++settings.send_serv) serv_pack_send();
  EXPECT_EQ("", received());
  EXPECT_EQ(102U, all_send_cnt);  // 0 does not even count
}

TEST_F(Sending, SendsOnlyWhatCanGoOutWhole) {
  const std::string f = dir.path("f"), pipe = dir.path("pipe");
  metrics = {};
  EXPECT_EQ(0, mkfifo(pipe.c_str(), 0600));
  for (const auto& path : {dir.root, pipe, f, std::string()})
    EXPECT_EQ(kNotSent, SendFile(path, "", 0)) << path;
  EXPECT_EQ("\nName for file to send not found.", console.str());
  const std::function<void()> changes[] = {
      [&] { fs::resize_file(f, 1); }, [&] { fs::resize_file(f, 4000); },
      [&] { fs::last_write_time(f, {}); }, [&] { fs::rename(dir.file("g"), f); }};
  for (const auto& change : changes) {
    on_pause = [&](std::uint32_t) { change(); };
    EXPECT_EQ(kNotSent, send(std::string(3000, 'x'))) << &change - changes;
    const bool was_cut = &change == changes;  // no part goes out as far as it could be read
    EXPECT_EQ(was_cut ? "0 0 0 0 0 " : "0 0 0 0 0 1 2 3 0 0 0 0 0 1 2 3 ", received());
  }
  on_pause = [&](std::uint32_t) { fs::remove(f); };
  EXPECT_EQ(kSent, send("x"));  // it went out, whoever took it away
  std::ifstream reader;
  on_pause = [&](std::uint32_t) { reader.open(f), time_passed += 2; };
  EXPECT_EQ(kNotSent, send("x"));
  EXPECT_EQ(kSent, SendFile(f, "", kKindTrashJournal));
  reader.close();
  on_pause = [](std::uint32_t) {};
  settings.trash_active = 1, settings.trash_path = dir.file("blocked");
  EXPECT_EQ(kSent, send(""));
  EXPECT_TRUE(dir.exists("f"));  // stays where it can't be moved
  settings.head_send = 0;
  EXPECT_EQ(kNotSent, send("x"));
  settings.head_send = 1, settings.data_send = 0;
  EXPECT_EQ(kNotSent, send("x"));
  EXPECT_EQ((decltype(metrics.failed){3, 4, 1, 0, 0, 0}), metrics.failed);
}

TEST_F(Sending, TellsMetricsBetweenHeaderPacketsToo) {
  settings.metrics = dir.path("m"), settings.head_send = 2;
  begin_metrics();
  fs::remove(settings.metrics);
  int told = 0;
  on_pause = [&](std::uint32_t) { time_passed += 6, told += dir.exists("m") ? 1 : 0; };
  EXPECT_EQ(kSent, send(""));
  EXPECT_LT(1, told) << "after the second packet of the first pass";
}

/// Later than any look for a stop so far, s.
static std::time_t later() {
  static std::time_t now = 0;
  return now += 100;
}

TEST_F(Sending, LooksForAStopByAClockThatNobodySets) {
  Proc lock("a", dir.root);
  pplock = &lock;
  time_passed = later();
  EXPECT_FALSE(check2break());
  ask_to_stop(dir.path("a.lock"));
  EXPECT_FALSE(check2break()) << "ten times a second are enough";
  clock_stepped = -3600;
  ++time_passed;
  EXPECT_TRUE(check2break());
  pplock = nullptr;
}

TEST_F(Sending, LooksForAStopBeforeEachHeaderPacketAndBeforeTheParts) {
  settings.data_send = 1, time_passed = later();
  for (const auto& [headers, stop_after, wanted] :
       {std::tuple{3, 1, "0 "}, {3, 3, "0 0 0 "}, {1, 1, "0 "}, {1, 9, "0 1 "}}) {
    Proc lock("b", dir.root);
    pplock = &lock;
    settings.head_send = headers;
    on_pause = [&, after = stop_after](std::uint32_t) mutable {
      ++time_passed;
      if (--after == 0) ask_to_stop(dir.path("b.lock"));
    };
    EXPECT_EQ(stop_after == 9 ? kSent : kNotSent, send("x"));
    EXPECT_EQ(wanted, received()) << headers << " " << stop_after;
    pplock = nullptr;
  }
}
