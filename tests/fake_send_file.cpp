#include "send/send_file.h"
#include "tests/fakes.h"

std::vector<std::string> handed;
std::function<int(const std::string&)> on_sending;

int SendFile(const std::string& path, const std::string& sub, unsigned short kind) {
  handed.push_back(path + "|" + sub + "|" + std::to_string(kind));
  return on_sending ? on_sending(path) : kSent;
}
