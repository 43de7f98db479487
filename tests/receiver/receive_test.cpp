// Datagrams in, files out: the receiver in this process, fed without a socket.
#include <sys/resource.h>

#include "harness.h"

TEST_F(Receive, PutsPartsTogetherInAnyOrder) {
  start();
  const File file{7, "\xCF.bin", random_bytes(20'000, 1), "/to/../x"}, empty{8, "empty", ""};
  const File other{7, "\xCF.bin", "other" + file.bytes, "", 1500};
  feed({file.part(15), file.part(3), file.header(), file.part(1),
        datagram(7, 1, other.bytes.substr(0, 1380)), other.part(2), datagram(7, 16, "x"),
        datagram(7, 15, "short"), file.part(15) + "?", file.part(3)});
  EXPECT_EQ("", told("delivered", "path"));
  for (int pass = 0; pass < 2; ++pass) feed(file.pass(5));
  feed(empty.pass());
  EXPECT_TRUE(file.bytes == contents(into / "to/%2E%2E/x/\u041F.bin"));
  for (const char* metric :
       {"contradicting_total 3", "repeated_parts_total 20", "differing_parts_total 1"})
    EXPECT_TRUE(metric_is(metric)) << metric;
  start();  // what is finished is known after a restart, too
  feed(file.pass()), feed(empty.pass());
  EXPECT_TRUE(metric_is("open_transfers 0"));
  EXPECT_TRUE(metric_is("repeated_parts_total 15"));
  EXPECT_EQ("to/%2E%2E/x/\u041F.bin empty ", told("delivered", "path"));
}

TEST_F(Receive, TheLaterOfTwoFilesWithOneNameReplacesTheEarlier) {
  start();
  const File one{1, "f", random_bytes(2000, 1)}, two{2, "f", random_bytes(2000, 2)};
  feed({one.header(), one.part(1), two.header(), one.part(1), two.part(1), two.part(2),
        one.part(2)});
  EXPECT_TRUE(one.bytes == contents(into / "f")) << "which was whole last";
}

TEST_F(Receive, TellsTransfersApartByIdAndSource) {
  const File one{5, "one", random_bytes(4000, 1)}, two{5, "two", random_bytes(4000, 2)};
  const File later{5, "later", random_bytes(4000, 3)};
  start();
  feed({one.header()}, "127.0.0.1", 1), feed({two.part(3)}, "127.0.0.1", 2);
  feed({one.part(1)}, "127.0.0.1", 1), feed({two.header(), two.part(1)}, "127.0.0.1", 2);
  receiver->end({}), start();
  feed({one.part(2), one.part(3)}, "127.0.0.1", 1), feed({two.part(2)}, "127.0.0.1", 2);
  EXPECT_EQ("one two ", told("delivered", "path"));
  feed(later.pass(), "127.0.0.1", 1), feed(one.pass(), "127.0.0.1", 1);
  EXPECT_EQ("one two later ", told("delivered", "path")) << "of a closed id with another header";
  const File a{6, "a", "a"}, b{6, "b", "b"};
  feed({a.header(), a.part(1), b.header(), b.part(1)});
  EXPECT_EQ("one two later a b ", told("delivered", "path")) << "whole before the other came";
  start();
  feed(later.pass(), "127.0.0.1", 1), feed(one.pass(), "127.0.0.1", 1);
  EXPECT_EQ(5U, ledger->all(Outcome::kDelivered).size());
  for (const File& file : {one, two, later}) {
    EXPECT_TRUE(file.bytes == contents(into / file.name)) << file.name;
  }
}

TEST_F(Receive, DeliversNothingWhosePartsCanNotBeToldApart) {
  const File one{5, "one", random_bytes(4000, 1)}, two{5, "two", random_bytes(4000, 2)};
  start({"--ignore-source"});
  feed({one.header(), one.part(1)}, "127.0.0.1", 1), feed(two.pass(), "127.0.0.1", 2);
  feed({one.part(2), one.part(3)}, "127.0.0.1", 1), feed(one.pass(), "127.0.0.1", 3);
  EXPECT_EQ("one two ", told("incomplete", "path"));
  EXPECT_EQ("", told("delivered", "path"));
  pass_time(40), feed({two.part(1)}), pass_time(40), feed(one.pass());
  EXPECT_EQ("", told("delivered", "path")) << "packets still come under the id";
  pass_time(61);
  feed({one.header(), one.part(3)}, "127.0.0.1", 1);
  feed({one.part(1), one.part(2)}, "127.0.0.1", 2), feed(two.pass(), "127.0.0.1", 2);
  EXPECT_EQ("one two ", told("delivered", "path"));
  EXPECT_TRUE(two.bytes == contents(into / "two"));
}

TEST_F(Receive, KeepsOrDropsWhatIsGivenUpAndBeginsAnew) {
  const File file{5, "f", random_bytes(10'000, 2)};
  const std::string came = file.part(1).substr(20) + file.part(2).substr(20) +
                           std::string(5520, '\0') + file.part(7).substr(20);
  for (const bool drop : {false, true}) {
    start();
    feed({file.header(), file.part(1), file.part(2), file.part(7), file.part(8) + "?"});
    receiver->end({});
    start({drop ? "--drop-incomplete" : "--keep-existing"});
    pass_time(61);
    const std::string kept = hidden / "incomplete/0000000000000005-7F000001-0000-f";
    EXPECT_TRUE((drop ? "" : came) == contents(kept));
    EXPECT_EQ(drop, contents(kept + ".missing.txt").find("2760-8279, 9660-9999\n") + 1 == 0);
    fs::remove_all(hidden / "incomplete");
  }
  EXPECT_EQ("2760-8279, 9660-9999 2760-8279, 9660-9999 ", told("incomplete", "missing_bytes"));
  feed(file.pass());
  EXPECT_TRUE(file.bytes == contents(into / "f"));
}

TEST_F(Receive, RefusesOverALimitSayingWhyAndGoesOn) {
  const File open{1, "open", "x"}, file{2, "f", std::string(1000, 'x')};
  for (const auto& [option, value, forgotten] :
       {std::tuple{"--max-file-size", "999", "1"}, {"--reserve", "9999999999999999", "2"}}) {
    start({option, value});
    feed({open.header()}), feed(file.pass()), feed(open.pass());
    EXPECT_TRUE(metric_is(std::string("forgotten_parts_total ") + forgotten)) << option;
    stop(), fs::remove_all(into);
  }
  start({"--allow", "10.1.0.0/16", "--allow", "127.0.0.1"});
  feed(file.pass(), "10.2.0.1");
  EXPECT_TRUE(metric_is("not_allowed_total 2"));
  feed(file.pass(), "10.1.255.9"), feed(open.pass());
  EXPECT_EQ("open f open ", told("delivered", "path"));
  EXPECT_EQ("larger than --max-file-size not enough free disk space not enough free disk space ",
            told("refused", "why"));
}

TEST_F(Receive, GivesUpTheMostSilentForANewcomerAndLeavesRoomForOthers) {
  const std::uint64_t share = fs::space(root).available / 4;
  start({"--max-transfers", "16"});
  const File other{99, "f", random_bytes(1 << 20, 1)};
  feed(other.pass(1, 2));
  for (std::uint64_t id = 1; id <= 20; ++id) {  // together they promise more than is free
    feed({File{id, std::to_string(id), "x"}.header().replace(20, 8, le(share, 8))}, "10.0.0.1");
  }
  EXPECT_EQ("1 2 3 4 5 6 ", told("incomplete", "path")) << "14 places are for one address";
  feed(other.pass(1, 1, 1));
  EXPECT_TRUE(other.bytes == contents(into / "f"));
  EXPECT_EQ("", told("refused", "why"));
}

TEST_F(Receive, KeepsWhatCameInTheSameBatchOfAFileThatIsGivenUp) {
  const File one{5, "one", random_bytes(4000, 1)}, two{5, "two", random_bytes(4000, 2)};
  const File other{6, "other", random_bytes(4000, 3)};
  for (const auto& [newcomer, why] : {std::pair{two, "contested"}, {other, "no place"}}) {
    start({"--max-transfers", "1"});
    feed({one.header(), one.part(1), newcomer.header()});
    EXPECT_TRUE(one.part(1).substr(20) ==
                contents(hidden / "incomplete/0000000000000005-7F000001-0000-one"))
        << why;
    stop(), fs::remove_all(into);
  }
}

TEST_F(Receive, BeginsWithNoBytesOfAnEarlierAttempt) {
  start();
  EXPECT_EQ(9, pwrite(store->parts().open({1, 0x7F000001, 0}), "old bytes", 9, 0));
  feed(File{1, "f", "new"}.pass());
  EXPECT_EQ("new", contents(into / "f"));
}

TEST_F(Receive, NothingIsForgottenWhosePacketsMayStillWaitInMemory) {
  const File file{1, "f", random_bytes(4000, 1)}, late{2, "late", random_bytes(2000, 2)};
  start({"--silence", "900ms"});
  feed({file.header(), file.part(1), late.part(2)});
  const Now then = now;
  now.monotonic += 100, now.real += 100;
  receiver->tick(now, then, {});
  EXPECT_EQ("", told("incomplete", "path") + told("warning", "text"));
  feed({file.part(2), file.part(3), late.header(), late.part(1)});
  EXPECT_EQ("f late ", told("delivered", "path"));
  feed({File{3, "x", random_bytes(2000, 2)}.part(1)});
  pass_time(0.75);
  EXPECT_EQ("", told("warning", "text"));
  pass_time(30.25), pass_time(1);
  EXPECT_EQ("nothing came for 31 seconds ", told("warning", "text")) << "once";
  pass_time(29);
  EXPECT_TRUE(metric_is("forgotten_parts_total 1")) << "no header packet came";
  feed({file.header()}), pass_time(31);
  EXPECT_EQ("nothing came for 31 seconds nothing came for 31 seconds ", told("warning", "text"));
}

TEST_F(Receive, CountsWhatTheLineAndTheMachineLost) {
  start();
  const auto service = [](std::uint64_t n) { return datagram(~0ULL, 0, le(n, 8) + le(n, 8)); };
  feed({service(10), "x", File{1, "f", random_bytes(4000, 1)}.header(), datagram(9, 1, "early"),
        datagram(1, 1, random_bytes(1380, 1)), service(20)});
  const IntakeCounts intake{1, 2, 3, 4};
  receiver->tell_state(intake);
  for (const char* metric :
       {"datagrams_total 6", "bytes_total 1585", "malformed_total 1", "link_sent_total 10",
        "link_lost_total 5", "kernel_drops_total 4", "memory_bytes 1",
        "memory_dropped_datagrams_total 2", "memory_dropped_transfers_total 3", "missing_parts 2",
        "open_transfers 1", "last_datagram_timestamp_seconds 1800000000.000"})
    EXPECT_TRUE(metric_is(metric, intake)) << metric << "\n" << contents(root / "metrics");
  const std::string all = contents(root / "metrics");
  EXPECT_EQ(26, std::count(all.begin(), all.end(), '#') / 2) << "none is left out";
  const auto state = nlohmann::json::parse(console().substr(0, console().find('\n')));
  EXPECT_EQ("state", state["event"]);
  EXPECT_EQ(4, state["kernel_drops"]);
  for (const IntakeCounts& counts : {IntakeCounts{}, {0, 0, 0, 4}, intake, intake, {0, 5, 4, 5}})
    receiver->tick(now, now, counts);
  const std::string kernel = "this machine does not keep up: the kernel dropped datagrams ";
  const std::string memory =
      "disk or ledger do not keep up and the memory (--memory) is full: dropped ";
  EXPECT_EQ(kernel + "4 times " + memory +
                "2 datagrams, of 3 newly dropped transfers and of earlier ones " + kernel +
                "1 times " + memory +
                "3 datagrams, of 1 newly dropped transfers and of earlier ones ",
            told("warning", "text"))
      << "and nothing of silence, which nobody asked for";
  EXPECT_EQ(1U, find(1)->received) << "progress is saved";
}

TEST_F(Receive, SurvivesHostileDatagrams) {
  start({"--max-transfers", "9"});  // one is left to other addresses
  const File file{1, "n", random_bytes(5'000, 1), "d"};
  feed({file.header()});
  std::uint64_t id = 1;
  for (const std::string& good : {file.header(), file.part(2), datagram(~0ULL, 0, le(1, 16))}) {
    for (std::size_t size = 0; size < good.size(); ++size) {
      feed({good.substr(0, size)});
      if (size >= 20) feed({datagram(++id, good[8] != 0, good.substr(20, size - 20))});
    }
    for (std::size_t at = 0; at < std::min<std::size_t>(good.size(), 90); at += 2) {
      for (const std::uint64_t value : {0ULL, 1ULL, 1ULL << 31, ~0ULL, ~0ULL - 1, ~0ULL >> 1}) {
        for (const unsigned width : {2U, 4U, 8U})
          feed({(le(++id, 8) + good.substr(8)).replace(at, width, le(value, width))});
      }
    }
  }
  std::string up;
  while (up.size() < 60'000) up += "../";
  for (const std::string& text : {up, "/tmp/" + up, "." + up, std::string(60'000, '\xCF'),
                                  std::string(".tarnwick"), std::string("\n\x1B[2J\x7F%00")})
    feed(File{++id, text, ""}.pass()), feed(File{++id, "n", "", text}.pass());
  for (int i = 0; i < 20'000; ++i)  // 1.3 GB, were they kept
    feed({File{++id, "x", "x"}.header(), datagram(~9ULL, 1, std::string(65'000, 'x'))});
  rusage used{};
  EXPECT_EQ(0, getrusage(RUSAGE_SELF, &used));
  EXPECT_GT(700'000, used.ru_maxrss);  // KiB
  EXPECT_GE(9, std::distance(fs::directory_iterator(hidden / "parts"), {}));
  feed(file.pass());
  EXPECT_TRUE(file.bytes == contents(into / "d/n"));
  EXPECT_EQ(1, std::distance(fs::directory_iterator(root), {}));
}

TEST(Datagrams, AreTakenOnlyIfASenderSendsThem) {
  const std::string record("/\0r", 3), plain = File{7, "f", ""}.header();
  const std::string nested = File{7, "f", "", "d", 65507, 1}.header();
  const auto with = [&](std::size_t at, std::uint64_t value, unsigned width) {
    return std::string(plain).replace(at, width, le(value, width));
  };
  const auto as_header = [](const std::string& body) { return datagram(7, 0, body.substr(20)); };
  const auto kind_of = [](const std::string& text) {
    const auto* const bytes = reinterpret_cast<const unsigned char*>(text.data());
    return std::array{"none", "header", "part", "service"}.at(
        parse_datagram(bytes, text.size()).index());
  };
  const std::tuple<const char*, const char*, std::string> rows[] = {
      {"header", "a name", plain},
      {"header", "a folder", nested},
      {"header", "the largest file", with(20, INT64_MAX, 8)},
      {"header", "a seal", File{7, "s", "", record, 1400, 2}.header()},
      {"part", "a part", datagram(7, 1, "x")},
      {"service", "service", datagram(~0ULL, 0, std::string(16, 'x'))},
      {"none", "a seal without a record", File{7, "s", "", "d", 1400, 2}.header()},
      {"none", "a record of a file", File{7, "f", "", record}.header()},
      {"none", "too large a file", with(20, 1ULL << 63, 8)},
      {"none", "a field that is reserved", with(28, ~1ULL, 8)},
      {"none", "too small parts", with(36, 1399, 4)},
      {"none", "too large parts", with(36, 65508, 4)},
      {"none", "no end of the names", as_header(plain.substr(0, plain.size() - 1))},
      {"none", "no end of a name", as_header(plain.substr(0, plain.size() - 2))},
      {"none", "text behind", as_header(plain + "x")},
      {"none", "text behind a folder", as_header(nested + '\0')},
      {"none", "a part of nothing", datagram(7, 1, "")},
      {"none", "a length that is not its own", le(7, 8) + le(1, 8) + le(0, 4) + "x"},
      {"none", "short service", datagram(~0ULL, 0, std::string(15, 'x'))},
      {"none", "long service", datagram(~0ULL, 0, std::string(17, 'x'))},
      {"none", "a short header", datagram(7, 0, std::string(63, 'x'))},
  };
  for (const auto& [kind, what, text] : rows) {
    EXPECT_STREQ(kind, kind_of(text)) << what;
    for (std::size_t size = 0; size < text.size(); ++size)
      EXPECT_STREQ("none", kind_of(text.substr(0, size))) << what << " cut to " << size;
  }
}
