// The receiver as the program.
#include <netinet/udp.h>

#include "program.h"

TEST_F(Receive, GoesOnAfterItsEnd) {
  const Sender sender;
  const File file{3, "f", random_bytes(500'000, 1)};  // 363 parts
  const auto run = [&](std::uint64_t first, std::uint64_t last, int signal,
                       const std::function<bool()>& until) {
    Program program({"--into", into, "--listen", sender.listen, "--json"}, out);
    ASSERT_TRUE(eventually([&] { return program_told("listening"); }));
    if (signal == SIGTERM) kill(program.pid, SIGSTOP);  // all waits in the socket at the end
    sender.send(file.pass(1, first, last));
    EXPECT_TRUE(eventually(until));
    if (signal == SIGTERM) kill(program.pid, SIGTERM), kill(program.pid, SIGCONT), signal = 0;
    EXPECT_EQ(signal == SIGKILL ? -SIGKILL : 0, program.end(signal));
  };
  const auto saved = [&](std::uint64_t parts) {
    const auto all = Ledger::open_to_read(hidden / "ledger.sqlite", error)->all({});
    return !all.empty() && all[0].received >= parts;
  };
  run(1, 50, SIGKILL, [&] {
    const fs::directory_iterator part(hidden / "parts");
    return part != fs::directory_iterator() && !contents(part->path()).empty();
  });
  run(51, 150, SIGKILL, [&] { return saved(100); });
  run(151, 250, SIGTERM, [] { return true; });
  EXPECT_TRUE(saved(200));
  run(251, 363, SIGKILL, [&] { return saved(313); });
  run(1, 50, SIGINT, [&] { return fs::exists(into / "f"); });
  EXPECT_TRUE(file.bytes == contents(into / "f"));
}

TEST_F(Receive, RunsAsAProgram) {
  const Sender sender;
  const File file{1, "f", random_bytes(100'000, 1)}, lost{2, "lost", ""};
  const File journal{3, "j", file.journal_line() + lost.journal_line(), "", 1400, 1};
  Program program({"--into", into, "--listen", sender.listen, "--json", "--count", "2",
                   "--journals", root / "j", "--metrics", root / "metrics"},
                  out);
  ASSERT_TRUE(eventually([&] { return program_told("listening"); }));
  const std::string status = contents("/proc/" + std::to_string(program.pid) + "/status");
  EXPECT_NE(std::string::npos, status.find("NoNewPrivs:\t1")) << "the sandbox is the default";
  sender.send({file.header()});
  const int segment = 1400;  // many datagrams for one call, which may arrive as one
  setsockopt(sender.fd.get(), IPPROTO_UDP, UDP_SEGMENT, &segment, sizeof segment);
  std::string joined;
  for (std::uint64_t n = 1; n <= file.parts(); ++n) {
    joined += file.part(n);
    if (n % 40 == 0 || n == file.parts()) sender.send({std::exchange(joined, "")});
  }
  const auto ends = [&](int code, const Strings& arguments) {
    EXPECT_EQ(code, Program(arguments, root / "o").end()) << contents(root / "o");
    return contents(root / "o");
  };
  ends(3, {"--into", root / "2", "--listen", sender.listen});
  ends(4, {"--into", out, "--listen", "127.0.0.1:0"});
  ends(2, {"--into", root / "2", "--allow", "10.0.0.0/33"});
  ends(2, {"--into", root / "2", "--mode", "4755"});
  sender.send(journal.pass());
  EXPECT_TRUE(eventually([&] { return program_told("\"ended\""); }));
  EXPECT_EQ(0, program.end(SIGTERM));
  EXPECT_TRUE(file.bytes == contents(into / "f"));
  EXPECT_FALSE(fs::is_empty(root / "j"));
  EXPECT_NE("", contents(root / "metrics"));
  EXPECT_EQ("never arrived: lost\n2 files in the journals: 1 delivered, ",
            ends(1, {"report", "--into", into, "--missing"}).substr(0, 58));
  ends(0, {"report", "--into", into});
  EXPECT_EQ("2 records and 0 files deleted\n",
            ends(0, {"prune", "--into", into, "--older-than", "1"}))
      << "the journal's are from 1970";
  EXPECT_EQ("2 records and 1 files deleted\n",
            ends(0, {"prune", "--into", into, "--older-than", "1ms", "--journals", root / "j"}));
  ends(2, {"prune", "--into", into});
  ends(4, {"prune", "--into", root / "none", "--older-than", "1"});
}

TEST_F(Receive, AnswersSignalsAndMindsNoReader) {
  Sender sender, grouped;
  const std::string log = root / "log";
  std::ofstream(log) << "before\n";
  const auto logged = [&](const std::string& text) {
    return eventually([&] { return contents(log).find(text) + 1 != 0; });
  };
  Program program({"--into", into, "--listen", sender.listen, "--log", log, "--listen",
                   "0.0.0.0:" + grouped.port(), "--join", "239.1.2.3@lo"},
                  out);
  ASSERT_TRUE(logged("listening"));
  fs::rename(log, log + ".1");
  kill(program.pid, SIGHUP);
  ASSERT_TRUE(eventually([&] { return fs::exists(log); }));
  fs::create_directory(into / "f");  // where a file can't lie
  sender.send(File{1, "f", "x"}.pass());
  EXPECT_TRUE(logged("delivered "));
  const in_addr here{htonl(INADDR_LOOPBACK)};
  setsockopt(grouped.fd.get(), IPPROTO_IP, IP_MULTICAST_IF, &here, sizeof here);
  grouped.send_to("239.1.2.3");
  grouped.send(File{2, "to a group", "x"}.pass());
  EXPECT_TRUE(logged("to a group "));
  EXPECT_EQ("x", contents(into / "f (1)"));
  kill(program.pid, SIGUSR1);
  EXPECT_TRUE(logged("state: delivered=2 "));
  EXPECT_EQ(0U, contents(log + ".1").find("before\n"));
  EXPECT_EQ(std::string::npos, contents(log + ".1").find("delivered"));
  EXPECT_EQ(0, program.end(SIGTERM));
  EXPECT_EQ("", contents(out));
}
