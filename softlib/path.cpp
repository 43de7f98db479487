#include "softlib/path.h"

#include <utility>

namespace {

constexpr char kSeparators[] = "/\\";

}  // namespace

std::string get_file_name(const std::string& path) {
  const std::size_t at = path.find_last_of(kSeparators);
  return at == std::string::npos ? path : path.substr(at + 1);
}

std::string get_file_ext(const std::string& path) {
  const std::string name = get_file_name(path);
  const std::size_t dot = name.rfind('.');
  return dot == std::string::npos ? "" : name.substr(dot + 1);
}

std::string get_file_name_noext(const std::string& path) {
  const std::string name = get_file_name(path);
  return name.substr(0, name.rfind('.'));
}

void prg_get_name_dir(const std::string& path, std::string& name, std::string& dir) {
  const std::size_t at = path.find_last_of(kSeparators);
  std::string before = at == std::string::npos ? "" : path.substr(0, at);
  name = get_file_name(path);  // may be `path` itself
  dir = std::move(before);
}

std::string join_path(const std::string& parent, const std::string& name) {
  return parent.empty() ? name : parent + "/" + name;
}
