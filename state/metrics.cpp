#include "state/metrics.h"

#include <langinfo.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sstream>

#include "softlib/clock.h"
#include "softlib/escape.h"
#include "softlib/replace_file.h"
#include "softlib/system_log.h"
#include "state/scan_folder.h"
#include "state/settings.h"

Metrics metrics;

namespace {

constexpr std::uint64_t kIntervalMs = 5000;
constexpr const char* kWaitingNames[kWaitings] = {"mask", "extension", "empty", "open", "young"};
constexpr const char* kFailureNames[kFailures] = {"unreadable",  "changed", "opened",
                                                  "interrupted", "socket",  "not_removed"};

std::uint64_t last_told = 0;  // by steady_ms(); 0: the file was never written and shall not be

/// Returns `text` as the value of a label, which has to be UTF-8 on one line.
std::string quoted(const std::string& text) {
  const bool is_utf8 = std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
  std::string value = "\"";
  for (const char c : escape_unprintable(text)) {
    if (c == '"' || c == '\\') value += '\\';
    value += is_utf8 || (c & 0x80) == 0 ? c : '?';
  }
  return value + '"';
}

class Exposition {
 public:
  void begin(const char* name, const char* type, const char* help) {
    name_ = std::string("tarnwick_") + name;
    text_ << "# HELP " << name_ << " " << help << "\n# TYPE " << name_ << " " << type << "\n";
  }
  template <typename T>
  void put(const std::string& labels, T value) {
    text_ << name_ << (labels.empty() ? "" : "{" + labels + "}") << " " << value << "\n";
  }
  template <typename T>
  void add(const char* name, const char* type, const char* help, T value) {
    begin(name, type, help);
    put("", value);
  }
  /// Adds a metric with one line for each scan folder, whose value is in `field`.
  void add_folders(const char* name, const char* help, std::uint64_t FolderCounts::*field) {
    begin(name, "counter", help);
    for (const scan_folder& folder : scan_list) {
      put("folder=" + quoted(folder.abs_path) + ",receiver=\"" + folder.ip + ":" +
              std::to_string(folder.port) + "\"",
          folder.counts.*field);
    }
  }
  std::string text() const { return text_.str(); }

 private:
  std::string name_;
  std::ostringstream text_;
};

void add_waiting(Exposition& e) {
  WaitingCounts counts{};
  for (const scan_folder& folder : scan_list) {
    for (std::size_t i = 0; i < kWaitings; ++i) counts[i] += folder.counts.waiting[i];
  }
  e.begin("files_waiting", "gauge", "Files that the last walk of each folder left, by reason.");
  for (std::size_t i = 0; i < kWaitings; ++i) {
    e.put(std::string("reason=\"") + kWaitingNames[i] + '"', counts[i]);
  }
}

void add_present(Exposition& e) {
  e.begin("present_file", "gauge", "1 for the file that is being sent.");
  if (!metrics.file.empty()) e.put("path=" + quoted(metrics.file), 1);
  e.add("present_file_parts", "gauge", "Its parts, over all passes.", metrics.parts);
  e.add("present_file_parts_sent", "gauge", "Of these, sent.", metrics.parts_sent);
}

void write_now() {
  static Warning warning;
  if (settings.metrics.empty()) return;
  last_told = steady_ms();
  const std::string why = replace_file(settings.metrics, metrics_text());
  warning.note(why.empty(), "can't write the metrics " + settings.metrics + ": " + why);
}

}  // namespace

PresentFile::PresentFile(const std::string& path, std::uint64_t parts) {
  metrics.file = path;
  metrics.parts = parts;
  metrics.parts_sent = 0;
}

PresentFile::~PresentFile() {
  metrics.file.clear();
  metrics.parts = metrics.parts_sent = 0;
}

std::string metrics_text() {
  Exposition e;
  e.begin("build_info", "gauge", "The version of the program.");
  e.put("version=\"" TARNWICK_VERSION "\"", 1);
  e.add_folders("files_sent_total", "Files sent.", &FolderCounts::files);
  e.add_folders("bytes_sent_total", "Bytes of the files sent.", &FolderCounts::bytes);
  e.add_folders("datagrams_sent_total", "Datagrams sent.", &FolderCounts::datagrams);
  add_waiting(e);
  e.begin("files_failed_total", "counter", "Files that were ready and not sent, by reason.");
  for (std::size_t i = 0; i < kFailures; ++i) {
    e.put(std::string("reason=\"") + kFailureNames[i] + '"', metrics.failed[i]);
  }
  add_present(e);
  e.add("last_sent_timestamp_seconds", "gauge", "When the last file was sent.", metrics.last_sent);
  e.add("cycles_total", "counter", "Scan cycles that ended.", metrics.cycles);
  e.add("access_errors_total", "counter", "Removals that failed; the eleventh ends the run.",
        metrics.access_errors);
  e.add("written_timestamp_seconds", "gauge", "When this was written.", std::time(nullptr));
  return e.text();
}

void begin_metrics() {
  if (settings.metrics.empty()) return;
  write_now();
  (void)std::atexit(write_now);
}

bool metrics_are_due() { return last_told != 0 && steady_ms() - last_told >= kIntervalMs; }

void tell_metrics() {
  if (metrics_are_due()) write_now();
}
