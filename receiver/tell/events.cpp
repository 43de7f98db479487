#include "receiver/tell/events.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <utility>

#include "receiver/base/byte_ranges.h"
#include "receiver/base/hex.h"
#include "receiver/base/names.h"
#include "receiver/base/now.h"
#include "receiver/base/utf8.h"
#include "receiver/tell/stamp.h"

namespace {

using Json = nlohmann::json;

constexpr std::size_t kRangesTold = 5;  // of the bytes that an incomplete file lacks

/// Folder and name, fit for a terminal.
std::string shown(const TransferRecord& record) {
  std::string path;
  for (const std::string& folder : safe_folders(record.folder)) path += folder + "/";
  return printable(path + safe_name(record.name));
}

Json event(const char* name, const TransferRecord& record) {
  return {{"event", name},         {"id", hex(record.key.id)},    {"path", shown(record)},
          {"size", record.size},   {"source", record.source},     {"send_time", record.send_time},
          {"parts", record.parts}, {"received", record.received}, {"repeated", record.repeated}};
}

std::string to_line(Json json) {
  json["time"] = rfc3339_utc(Now::read().real);
  return json.dump(-1, ' ', true, Json::error_handler_t::replace);
}

}  // namespace

Events::Events(bool json, Outlet& events, Outlet& warnings)
    : json_(json),
      events_(events),
      warnings_(warnings),
      terminal_(!json && isatty(events.fd()) == 1),
      events_to_journal_(is_journal(events.fd(), std::getenv("JOURNAL_STREAM"))),
      warnings_to_journal_(is_journal(warnings.fd(), std::getenv("JOURNAL_STREAM"))) {}

void Events::flush() {
  events_.flush();
  warnings_.flush();
  const std::uint64_t dropped = events_.dropped() + warnings_.dropped();
  if (dropped == drops_told_ || !events_.is_clear() || !warnings_.is_clear()) return;
  warning(std::to_string(dropped - drops_told_) + " messages were dropped: nobody read them");
  drops_told_ = dropped;
}

void Events::listening(const std::string& at, const std::string& into) {
  line("listening", json_ ? to_line({{"event", "listening"}, {"at", at}, {"into", into}})
                          : "listening at " + at + ", files go to " + into);
}

void Events::delivered(const TransferRecord& record) {
  if (json_) {
    Json json = event("delivered", record);
    json["delivered_to"] = record.delivered_to;
    json["differing"] = record.differing;
    json["collided"] = record.collided;
    json["repaired"] = record.repaired;
    json["proof"] = record.proof;
    return line("delivered", to_line(json));
  }
  line("delivered",
       "delivered " + printable(record.delivered_to) + " (" + std::to_string(record.size) +
           " bytes" +
           (record.repaired > 0 ? ", " + std::to_string(record.repaired) + " parts repaired" : "") +
           (record.proof.empty() ? "" : ", proved: " + record.proof) + ")");
  if (record.collided) {
    warning_line(printable(record.asked_for) +
                 " has come from another path: this file got the name " +
                 printable(record.delivered_to));
  }
  if (record.differing > 0) {
    warning_line(shown(record) + ": " + std::to_string(record.differing) +
                 " repeated parts held other bytes than what is stored");
  }
}

/// A file may lack a hundred thousand ranges: the whole list stands beside it.
void Events::incomplete(const TransferRecord& record) {
  const ByteRanges ranges = missing_bytes(record);
  const std::string missing = ranges_text(ranges, kRangesTold);
  const std::string& kept_as = record.delivered_to;
  if (json_) {
    Json json = event("incomplete", record);
    json["missing_bytes"] = missing;
    json["missing_ranges"] = ranges.size();
    json["kept_as"] = kept_as;
    json["why"] = record.why;
    return line("incomplete", to_line(json));
  }
  std::string text = "INCOMPLETE " + shown(record) + ": " + printable(record.why);
  if (!missing.empty()) text += ", missing bytes " + missing;
  if (!kept_as.empty()) text += ", kept as " + printable(kept_as);
  if (!kept_as.empty() && ranges.size() > kRangesTold) text += " (all in its .missing.txt)";
  line("incomplete", text);
}

void Events::refused(const TransferRecord& record) {
  if (json_) {
    Json json = event("refused", record);
    json["why"] = record.why;
    return line("refused", to_line(json));
  }
  line("refused", "REFUSED " + shown(record) + ": " + printable(record.why));
}

void Events::warning(const std::string& text) {
  json_ ? line("warning", to_line({{"event", "warning"}, {"text", text}}))
        : warning_line(printable(text));
}

void Events::warning_line(const std::string& text) {
  clear_progress();
  put(warnings_, warnings_to_journal_, "warning", "warning: " + text);
}

void Events::ended(std::uint64_t files) {
  line("ended", json_ ? to_line({{"event", "ended"}, {"files", files}})
                      : "ended after " + std::to_string(files) + " files");
}

void Events::state(const Metrics& m) {
  const std::pair<const char*, std::uint64_t> numbers[] = {
      {"delivered", m.delivered},
      {"incomplete", m.incomplete},
      {"refused", m.refused},
      {"open_transfers", m.open_transfers},
      {"missing_parts", m.missing_parts},
      {"datagrams", m.datagrams},
      {"kernel_drops", m.kernel_drops},
      {"memory_bytes", m.memory},
      {"memory_dropped_datagrams", m.memory_dropped_datagrams}};
  Json json = {{"event", "state"}};
  std::string text = "state:";
  for (const auto& [name, number] : numbers) {
    json[name] = number;
    text.append(" ").append(name).append("=").append(std::to_string(number));
  }
  line("state", json_ ? to_line(json) : text);
}

void Events::progress(const TransferRecord& record, double rate, std::uint64_t holes) {
  if (!terminal_) return;
  const std::uint64_t percent = record.parts == 0 ? 100 : record.received * 100 / record.parts;
  char rate_text[32];
  std::snprintf(rate_text, sizeof rate_text, "%.1f", rate * 8 / 1e6);
  // to the line's start, and erase what stood there (ECMA-48)
  events_.put("\r\033[K" + shown(record) + "  " + std::to_string(percent) + " %  " + rate_text +
              " Mbit/s  " + std::to_string(holes) + " parts missing so far");
  progress_shown_ = true;
}

void Events::line(const char* event, const std::string& text) {
  clear_progress();
  put(events_, events_to_journal_, event, text);
}

void Events::put(Outlet& outlet, bool to_journal, const char* event, const std::string& text) {
  const std::string begin = to_journal ? level_prefix(event)
                            : json_    ? ""
                                       : rfc3339_local(Now::read().real) + " ";
  outlet.put(begin + text + "\n");
}

void Events::clear_progress() {
  if (progress_shown_) events_.put("\r\033[K");
  progress_shown_ = false;
}
