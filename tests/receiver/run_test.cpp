// The receiver as the program, over 127.0.0.1.
#include <netinet/udp.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <csignal>
#include <functional>

#include "harness.h"

namespace {

/// Waits up to 60 s for it to hold; false if it never did.
bool eventually(const std::function<bool()>& holds) {
  for (int i = 0; i < 12'000 && !holds(); ++i) usleep(5'000);
  return holds();
}

/// A UDP socket that sends to a port of its own. The port lies below those that the system
/// hands out (ip(7), ip_local_port_range), and no other process of these tests tries it, so
/// it is still free when the program binds it.
struct Sender {
  Sender() {
    static int next = getpid() * 4;
    sockaddr_in at;
    for (int status = -1; status != 0; ++next) {
      at = from("127.0.0.1", static_cast<std::uint16_t>(10'000 + next % 20'000));
      const Fd trial(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
      status = bind(trial.get(), reinterpret_cast<sockaddr*>(&at), sizeof at);
    }
    EXPECT_EQ(0, connect(fd.get(), reinterpret_cast<sockaddr*>(&at), sizeof at));
    listen = "127.0.0.1:" + std::to_string(ntohs(at.sin_port));
  }
  void send(const Strings& datagrams) const {
    for (const std::string& d : datagrams) (void)::send(fd.get(), d.data(), d.size(), 0), usleep(9);
  }
  Fd fd{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
  std::string listen;
};

struct Program {
  Program(Strings arguments, const fs::path& out) {
    fs::remove(out);
    arguments.insert(arguments.begin(), RECEIVE);
    if ((pid = fork()) != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);  // a test that crashes leaves nothing running
    dup2(open(out.c_str(), O_WRONLY | O_CREAT, 0600), STDOUT_FILENO);
    execv(RECEIVE, to_argv(arguments).data());
    _exit(127);
  }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;
  ~Program() { end(SIGKILL); }
  /// The exit status, or the signal as a negative number.
  int end(int signal = 0) {
    if (pid > 0 && signal != 0) kill(pid, signal);
    if (pid > 0) waitpid(std::exchange(pid, 0), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }
  pid_t pid;
  int status = 0;
};

}  // namespace

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
  EXPECT_EQ(3, Program({"--into", root / "2", "--listen", sender.listen}, root / "o").end());
  EXPECT_EQ(4, Program({"--into", out, "--listen", "127.0.0.1:0"}, root / "o").end());
  EXPECT_EQ(2, Program({"--into", root / "2", "--allow", "10.0.0.0/33"}, root / "o").end());
  EXPECT_EQ(2, Program({"--into", root / "2", "--mode", "4755"}, root / "o").end());
  sender.send({file.header()});
  const int segment = 1400;  // many datagrams for one call, which may arrive as one
  setsockopt(sender.fd.get(), IPPROTO_UDP, UDP_SEGMENT, &segment, sizeof segment);
  std::string joined;
  for (std::uint64_t n = 1; n <= file.parts(); ++n) {
    joined += file.part(n);
    if (n % 40 == 0 || n == file.parts()) sender.send({std::exchange(joined, "")});
  }
  sender.send(journal.pass());
  EXPECT_TRUE(eventually([&] { return program_told("\"ended\""); }));
  EXPECT_EQ(0, program.end(SIGTERM));
  EXPECT_TRUE(file.bytes == contents(into / "f"));
  EXPECT_FALSE(fs::is_empty(root / "j"));
  EXPECT_NE("", contents(root / "metrics"));
  EXPECT_EQ(1, Program({"report", "--into", into, "--missing"}, out).end());
  EXPECT_EQ(0U, contents(out).find("never arrived: lost\n2 files in the journals: 1 delivered, "));
  EXPECT_EQ(0, Program({"report", "--into", into}, out).end());
  EXPECT_EQ(0, Program({"prune", "--into", into, "--older-than", "1"}, out).end());
  EXPECT_EQ("2 records and 0 files deleted\n", contents(out)) << "the journal's are from 1970";
  EXPECT_EQ(0,
            Program({"prune", "--into", into, "--older-than", "1ms", "--journals", root / "j"}, out)
                .end());
  EXPECT_EQ("2 records and 1 files deleted\n", contents(out));
  EXPECT_EQ(2, Program({"prune", "--into", into}, out).end());
  EXPECT_EQ(4, Program({"prune", "--into", root / "none", "--older-than", "1"}, out).end());
}

TEST_F(Receive, AnswersSignalsAndMindsNoReader) {
  const Sender sender;
  const std::string log = root / "log";
  const Sender grouped;
  Program program({"--into", into, "--listen", sender.listen, "--log", log, "--listen",
                   "0.0.0.0" + grouped.listen.substr(9), "--join", "239.1.2.3@lo"},
                  out);
  ASSERT_TRUE(eventually([&] { return contents(log).find("listening") + 1 != 0; }));
  fs::rename(log, log + ".1");
  kill(program.pid, SIGHUP);
  ASSERT_TRUE(eventually([&] { return fs::exists(log); }));
  fs::create_directory(into / "f");  // where a file can't lie
  sender.send(File{1, "f", "x"}.pass());
  EXPECT_TRUE(eventually([&] { return contents(log).find("delivered ") + 1 != 0; }));
  sockaddr_in group = from("239.1.2.3");
  socklen_t size = sizeof group;
  const in_addr here{htonl(INADDR_LOOPBACK)};
  sockaddr_in at{};
  ASSERT_EQ(0, getpeername(grouped.fd.get(), reinterpret_cast<sockaddr*>(&at), &size));
  group.sin_port = at.sin_port;
  setsockopt(grouped.fd.get(), IPPROTO_IP, IP_MULTICAST_IF, &here, sizeof here);
  ASSERT_EQ(0, connect(grouped.fd.get(), reinterpret_cast<sockaddr*>(&group), size));
  grouped.send(File{2, "to a group", "x"}.pass());
  EXPECT_TRUE(eventually([&] { return contents(log).find("to a group ") + 1 != 0; }));
  EXPECT_EQ("x", contents(into / "f (1)"));
  kill(program.pid, SIGUSR1);
  EXPECT_TRUE(eventually([&] { return contents(log).find("state: delivered=2 ") + 1 != 0; }));
  EXPECT_EQ(std::string::npos, contents(log + ".1").find("delivered"));
  EXPECT_EQ(0, program.end(SIGTERM));
  EXPECT_EQ("", contents(out));
}
