#include "check/names.h"

#include <algorithm>
#include <clocale>

#include "send/code_page.h"
#include "send/header_packet.h"
#include "state/settings.h"
#include "wire/wire_format.h"

namespace {

constexpr std::size_t kMostTold = 20;

/// A seal carries names as they are.
std::string name_that_arrives(const std::string& name, bool& cut) {
  cut = false;
  return settings.seal ? name : fname_to_send(name, cut);
}

}  // namespace

void check_charset(Findings& findings) {
  if (settings.seal) return;
  const std::string charset = settings.lcs.value_or("");
  std::string converted;
  if (std::setlocale(LC_ALL, "") == nullptr && settings.lcs_a.empty()) {
    findings.warn("names",
                  "the system lacks the locale that the environment names: names are cut "
                  "before the first character that ASCII lacks (LC_ALL=C.UTF-8)");
  } else if (charset == "ANSI_X3.4-1968") {
    findings.warn("names",
                  "the locale knows only ASCII: names are cut before the first character "
                  "that it lacks (LC_ALL=C.UTF-8)");
  } else if (!convert("a", converted, SND_CP, false)) {
    findings.warn("names", "the character set " + quoted(charset) +
                               " can't be converted: names "
                               "go out as they are");
  }
}

std::string NameCheck::look(const scan_folder& folder, const std::string& path,
                            const std::string& sub) {
  bool name_cut = false;
  bool folder_cut = false;
  const std::string name = name_that_arrives(path.substr(path.rfind('/') + 1), name_cut);
  const std::string there = name_that_arrives(destination_path(folder.dst_dir, sub), folder_cut);
  std::string arrives = there.empty() ? name : there + "/" + name;
  // the receiver drops leading slashes, too
  arrives.erase(0, std::min(arrives.find_first_not_of('/'), arrives.size()));
  // converted back, since the console shows the local character set
  std::string shown;
  if (settings.seal || !convert(arrives, shown, SND_CP, true)) shown = arrives;
  if (name_cut || folder_cut) tell("the name of " + path + " goes out cut, as " + quoted(shown));
  const std::string receiver = folder.ip + ":" + std::to_string(folder.port) + " ";
  const auto [other, is_new] = senders_.insert({receiver + arrives, path});
  if (!is_new && other->second != path)
    tell(other->second + " and " + path + " arrive under one name, " + quoted(shown));
  return shown;
}

void NameCheck::tell(const std::string& text) {
  if (++told_ <= kMostTold) findings_.warn("names", text);
}

void NameCheck::end() {
  if (told_ > kMostTold)
    findings_.warn("names", std::to_string(told_ - kMostTold) + " more names are cut or collide");
}
