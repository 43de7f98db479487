#include "check/folders.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

#include "scan/folder.h"
#include "scan/scan_list.h"
#include "state/settings.h"

namespace {

constexpr char kAbout[] = "folders";

void check_line(const std::string& line, int number, bool is_folder, Findings& findings) {
  const std::string where =
      settings.scan_list_name + ", line " + std::to_string(number) + ", " + quoted(line) + ",";
  const bool is_blank = line.find_first_not_of(" \t\r") == std::string::npos;
  if (!is_folder && !is_blank) {
    findings.warn(kAbout, where + " is skipped: a line is ADDRESS[:PORT] FOLDER [RECEIVER FOLDER]");
  }
  if (!is_folder) return;
  if (line.back() == '\r')
    findings.warn(kAbout, where + " ends with a carriage return, which belongs to its last word");
  if (line.find('\t') != std::string::npos)
    findings.warn(kAbout, where + " has a tab, which belongs to its word: only blanks part words");
}

/// True if the folder exists and can be opened as the walk opens it.
bool check_presence(const scan_folder& folder, Findings& findings) {
  const Opened opened = open_path(folder.abs_path, kFolderFlags);
  if (opened) return true;
  findings.warn(kAbout, "the folder " + folder.abs_path +
                            (opened.refused ? " is not scanned: the way to it leads through a link "
                                              "of another user"
                                            : " can't be opened: " +
                                                  std::string(std::strerror(opened.error))));
  return false;
}

void check_spelling(const scan_folder& folder, Findings& findings) {
  const std::string kernel = spelled_by_kernel(folder.abs_path);
  if (kernel == folder.abs_path) return;
  findings.warn(kAbout, quoted(folder.abs_path) + " is spelled " + quoted(kernel) +
                            " by the kernel: files that are open in it are not recognised, but "
                            "sent and deleted");
}

void check_right(const scan_folder& folder, Findings& findings) {
  if (faccessat(AT_FDCWD, folder.abs_path.c_str(), W_OK | X_OK, AT_EACCESS) == 0) return;
  findings.warn(kAbout, "what is sent from " + folder.abs_path + " can't be removed (" +
                            std::strerror(errno) +
                            "): it is sent again and again, and the 11th failure ends the run");
}

void check_pair(const std::string& a, const std::string& b, Findings& findings) {
  if (a == b) {
    findings.warn(kAbout, "the folder " + a +
                              " is scanned twice: the first line that comes to a "
                              "file sends and deletes it");
  } else if (lies_in(b, a)) {
    findings.warn(kAbout, "the folder " + b + " lies in " + a + ", which is scanned, too");
  }
}

}  // namespace

std::string spelled_by_kernel(const std::string& path) {
  std::error_code error;
  const std::string real = std::filesystem::weakly_canonical(path, error).string();
  if (error) return path;
  return real.size() > 1 && real.back() == '/' ? real.substr(0, real.size() - 1) : real;
}

bool lies_in(const std::string& path, const std::string& folder) {
  const std::string begin = folder == "/" ? folder : folder + "/";
  return path == folder || path.compare(0, begin.size(), begin) == 0;
}

std::vector<scan_folder> read_folders(Findings& findings) {
  if (settings.scan_list_name.empty()) return {folder_of_settings()};
  std::vector<scan_folder> folders;
  int number = 0;
  const ListEnd end =
      read_scan_list([&](const std::string& line, std::optional<scan_folder> folder) {
        check_line(line, ++number, folder.has_value(), findings);
        if (folder) folders.push_back(*std::move(folder));
      });
  const std::string list = "the scan list " + settings.scan_list_name;
  if (end == ListEnd::kMissing) {
    findings.stop(kAbout, list + " can't be opened: nothing would be sent");
  } else if (folders.empty()) {
    findings.stop(kAbout, list + " names no folder: nothing would be sent");
  }
  if (end == ListEnd::kBroken) findings.warn(kAbout, list + " can't be read to its end");
  return folders;
}

void check_folders(const std::vector<scan_folder>& folders, const std::vector<OwnPath>& own,
                   Findings& findings) {
  if (settings.scan_list_name.empty() && settings.sdir.empty())
    findings.warn(kAbout, "-f: without a value scans the working folder itself");
  for (std::size_t i = 0; i < folders.size(); ++i) {
    if (!check_presence(folders[i], findings)) continue;
    check_spelling(folders[i], findings);
    check_right(folders[i], findings);
    const std::string here = spelled_by_kernel(folders[i].abs_path);
    for (std::size_t j = 0; j < folders.size(); ++j) {
      const std::string other = spelled_by_kernel(folders[j].abs_path);
      if (j != i && (j > i || other != here)) check_pair(here, other, findings);
    }
    for (const OwnPath& path : own) {
      if (lies_in(spelled_by_kernel(path.path), here))
        findings.warn(kAbout, path.what + ", " + path.path + ", lies in the folder " + here +
                                  ", which is scanned: it would be sent and deleted");
    }
  }
}
