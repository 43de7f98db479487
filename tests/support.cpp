#include "tests/support.h"

#include <unistd.h>

#include <fstream>

TempDir::TempDir() { root = fs::canonical(mkdtemp(root.data())); }

TempDir::~TempDir() { fs::remove_all(root); }

std::string TempDir::file(const std::string& name, const std::string& content) const {
  fs::create_directories(fs::path(path(name)).parent_path());
  std::ofstream(path(name)) << content;
  return path(name);
}

std::string contents(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

bool give_away(const std::string& path) { return lchown(path.c_str(), kStranger, 0) == 0; }

std::string lock_record(std::int32_t pid, char stop, char command, char status) {
  const std::int16_t words[] = {command, status, 0};
  return std::string(reinterpret_cast<const char*>(&pid), sizeof pid) + stop + '\0' +
         std::string(reinterpret_cast<const char*>(words), sizeof words);
}

void ask_to_stop(const std::string& lock) {
  std::fstream(lock, std::ios::in | std::ios::out).seekp(4).put('\1');
}

void show_all() {
  std::cout.rdbuf(std::cerr.rdbuf());
  on_pause = [](std::uint32_t us) { std::cerr << "[" << us << "]"; };
}
