#include "check/dry_run.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <set>
#include <tuple>
#include <utility>

#include "check/line_time.h"
#include "check/names.h"
#include "check/privileges.h"
#include "check/reasons.h"
#include "scan/counters.h"
#include "scan/file_ready.h"
#include "scan/readiness.h"
#include "scan/tree.h"
#include "send/aside.h"
#include "send/send_file.h"
#include "softlib/links.h"
#include "softlib/path.h"
#include "state/settings.h"

namespace {

constexpr std::size_t kMostLinksTold = 20;

class DryRun final : public TreeVisitor {
 public:
  DryRun(bool judge, int card_speed, Findings& findings)
      : judge_(judge), card_speed_(card_speed), findings_(findings), names_(findings) {
    if (const Finding* stop = findings.first_stop(); stop != nullptr)
      ended_ = "the sender would not run: " + stop->text;
  }

  std::vector<Verdict> walk(std::vector<scan_folder>& folders) {
    for (scan_folder& folder : folders) {
      cur_folder = &folder;
      (void)walk_tree(folder.abs_path, *this);  // a missing folder was reported before
      if (ended_.empty() && settings.mode != kDaemon && input_is_at_end())
        ended_ = "standard input is at its end, which stops the run";
    }
    cur_folder = nullptr;
    names_.end();
    return std::move(verdicts_);
  }

  // nothing is renamed here: path_of() finds out what the file was called
  std::string visit_aside(const Folder& /*folder*/, const std::string& name) override {
    return name;
  }

  int visit_aside_folder(const Folder& /*above*/, const Folder& /*folder*/) override { return 0; }

  std::int32_t visit_file(const Entry& entry) override {
    if (is_gone(entry)) return 0;
    const std::string path = path_of(entry);
    const std::string sub = relative_sub_folder(path, cur_folder->abs_path);
    const std::string arrives = names_.look(*cur_folder, path, sub);
    tell_of_link(entry);
    if (!judge_) return 1;
    Verdict verdict;
    verdict.path = path;
    verdict.why = judge(entry, path, verdict.size);
    verdict.goes = verdict.why.empty();
    if (verdict.goes) {
      verdict.receiver = cur_folder->ip + ":" + std::to_string(cur_folder->port);
      verdict.arrives = arrives;
      verdict.seconds = seconds_for_file(static_cast<std::uint64_t>(verdict.size), card_speed_);
    } else {
      verdict.size = 0;
    }
    const bool leaves = verdict.goes && settle(entry, path);
    verdicts_.push_back(std::move(verdict));
    return leaves ? 0 : 1;
  }

  void visit_refused_link(const std::string& path) override {
    tell("the link " + path + " is not followed and stays: it is another user's, or leads back");
  }

  void enter(const Folder& folder) override {
    if (folder.is_link())
      tell("the link " + folder.path() +
           " is followed: the files in the folder behind it are sent and deleted");
  }

  bool visit_emptied(const Folder& above, Folder& folder, const std::string& /*name*/) override {
    if (folder.is_link()) {
      tell("the link " + folder.path() +
           " can't be removed once the folder behind it is empty: "
           "the 11th try ends the run");
    } else if (faccessat(above.fd(), ".", W_OK | X_OK, AT_EACCESS) == 0) {
      return true;
    }
    count_failure();
    return false;
  }

 private:
  using Place = std::tuple<dev_t, ino_t, std::string>;

  static Place place_of(const Entry& entry) {
    struct stat st {};
    (void)fstat(entry.folder, &st);  // it is open
    return {st.st_dev, st.st_ino, entry.name};
  }

  /// True if the same file would already have been sent through another path.
  bool is_gone(const Entry& entry) const { return gone_.count(place_of(entry)) > 0; }

  /// Returns the path by which the sender knows the file: a file left aside gets its name back.
  std::string path_of(const Entry& entry) const {
    // even with settings that send nothing the sender walks, and gives names back
    const bool is_reached = ended_.empty() || !settings_send_it_whole();
    if (!is_aside(entry.name) || !is_reached) return entry.path;
    const std::string name = name_of_aside(entry.name);
    struct stat st {};
    if (fstatat(entry.folder, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) return entry.path;
    return entry.path.substr(0, entry.path.size() - entry.name.size()) + name;
  }

  void tell_of_link(const Entry& entry) {
    struct stat st {};
    if (fstatat(entry.folder, entry.name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return;
    if (!S_ISLNK(st.st_mode)) return;
    const Opened target = open_below(entry.folder, entry.name.c_str(), O_PATH);
    const std::string link = "the link " + entry.path + " of uid " + std::to_string(st.st_uid);
    if (target) {
      tell(link + " goes as the file that it leads to; only the link is removed");
    } else {
      tell(link + (target.refused ? " is not followed, and stays" : " leads nowhere, and stays"));
    }
  }

  /// Returns "", or why the file stays. Sets `size` if it is sent.
  std::string judge(const Entry& entry, const std::string& path, std::int64_t& size) {
    if (!ended_.empty()) return ended_;
    if (const Readiness named = check_name(path); named != Readiness::kReady) return why_not(named);
    if (is_aside_folder(get_file_name(path.substr(0, path.rfind('/')))))
      return "a run that was killed left it aside: it gets its place back first";
    SourceFile file(entry);
    if (const Readiness ready = check_ready(file); ready != Readiness::kReady)
      return why_not(ready);
    if (const Sendable sends = sendable(file); sends != Sendable::kYes) return why_not(sends);
    if (leads_to_gone(entry, file)) return "it is a link to a file that goes before it";
    size = file.size();
    // at `verboze` 1 the key is looked for after each packet
    if (size > 0 && settings.verboze > 0 && settings.mode != kDaemon && input_is_at_end()) {
      ended_ = "standard input is at its end, which stops the run";
      return ended_;
    }
    return "";
  }

  bool leads_to_gone(const Entry& entry, const SourceFile& file) const {
    struct stat st {};
    if (fstatat(entry.folder, entry.name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return true;
    return S_ISLNK(st.st_mode) && gone_files_.count({file.stamp().device, file.stamp().inode}) > 0;
  }

  /// Settles a file that would be sent. Returns true if it can be removed afterwards.
  bool settle(const Entry& entry, const std::string& path) {
    if (faccessat(entry.folder, ".", W_OK | X_OK, AT_EACCESS) != 0) {
      tell("what is sent can't be removed, such as " + path + ": " + std::strerror(errno));
      if (settings.trash_active == 0) count_failure();
      return false;
    }
    gone_.insert(place_of(entry));
    struct stat st {};
    if (fstatat(entry.folder, entry.name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0)
      gone_files_.insert({st.st_dev, st.st_ino});
    return true;
  }

  void count_failure() {
    if (++failures_ > kToleratedAccessErrors && ended_.empty())
      ended_ = "too many files and folders can't be removed, which ends the run";
  }

  void tell(const std::string& text) {
    if (++told_ <= kMostLinksTold) findings_.warn("files", text);
  }

  bool judge_;
  int card_speed_;
  Findings& findings_;
  NameCheck names_;
  std::vector<Verdict> verdicts_;
  std::string ended_;  ///< why no more files are sent; empty: they are
  std::set<Place> gone_;
  std::set<std::pair<std::uint64_t, std::uint64_t>> gone_files_;
  std::int32_t failures_ = 0;
  std::size_t told_ = 0;
};

}  // namespace

std::vector<Verdict> walk_dry(std::vector<scan_folder>& folders, bool judge, int card_speed,
                              Findings& findings) {
  return DryRun(judge, card_speed, findings).walk(folders);
}
