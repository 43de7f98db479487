#include "receiver/events.h"

#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <nlohmann/json.hpp>

#include "receiver/byte_ranges.h"
#include "receiver/hex.h"
#include "receiver/names.h"
#include "receiver/utf8.h"

namespace {

using Json = nlohmann::json;

/// Folder and name, fit for a terminal.
std::string shown(const TransferRecord& record) {
  std::string path;
  for (const std::string& folder : safe_folders(record.folder)) path += folder + "/";
  return printable(path + safe_name(record.name));
}

Json event(const char* name, const TransferRecord& record) {
  return {{"event", name},         {"id", hex(record.id)},        {"path", shown(record)},
          {"size", record.size},   {"source", record.source},     {"send_time", record.send_time},
          {"parts", record.parts}, {"received", record.received}, {"repeated", record.repeated}};
}

std::string to_line(const Json& json) {
  return json.dump(-1, ' ', true, Json::error_handler_t::replace);
}

}  // namespace

Events::Events(bool json) : json_(json), terminal_(!json && isatty(STDOUT_FILENO) == 1) {}

void Events::listening(const std::string& at, const std::string& into) {
  line(json_ ? to_line({{"event", "listening"}, {"at", at}, {"into", into}})
             : "listening at " + at + ", files go to " + into);
}

void Events::delivered(const TransferRecord& record) {
  if (json_) {
    Json json = event("delivered", record);
    json["delivered_to"] = record.delivered_to;
    json["differing"] = record.differing;
    return line(to_line(json));
  }
  line("delivered " + printable(record.delivered_to) + " (" + std::to_string(record.size) +
       " bytes)");
  if (record.differing > 0) {
    warning_line(shown(record) + ": " + std::to_string(record.differing) +
                 " repeated parts held other bytes than what is stored");
  }
}

void Events::incomplete(const TransferRecord& record) {
  const std::string missing = ranges_text(missing_bytes(record));
  if (json_) {
    Json json = event("incomplete", record);
    json["missing_bytes"] = missing;
    json["kept_as"] = record.delivered_to;
    json["why"] = record.why;
    return line(to_line(json));
  }
  const std::string& kept_as = record.delivered_to;
  line("INCOMPLETE " + shown(record) + ": " + printable(record.why) +
       (missing.empty() ? "" : ", missing bytes " + missing) +
       (kept_as.empty() ? "" : ", kept as " + printable(kept_as)));
}

void Events::refused(const TransferRecord& record) {
  if (json_) {
    Json json = event("refused", record);
    json["why"] = record.why;
    return line(to_line(json));
  }
  line("REFUSED " + shown(record) + ": " + printable(record.why));
}

void Events::warning(const std::string& text) {
  json_ ? line(to_line({{"event", "warning"}, {"text", text}})) : warning_line(printable(text));
}

void Events::warning_line(const std::string& text) {
  clear_progress();
  std::cerr << "warning: " << text << std::endl;
}

void Events::ended(std::uint64_t files) {
  line(json_ ? to_line({{"event", "ended"}, {"files", files}})
             : "ended after " + std::to_string(files) + " files");
}

void Events::progress(const TransferRecord& record, double rate, std::uint64_t holes) {
  if (!terminal_) return;
  const std::uint64_t percent = record.parts == 0 ? 100 : record.received * 100 / record.parts;
  char rate_text[32];
  std::snprintf(rate_text, sizeof rate_text, "%.1f", rate * 8 / 1e6);
  // to the line's start, and erase what stood there (ECMA-48)
  std::cout << "\r\033[K" << shown(record) << "  " << percent << " %  " << rate_text << " Mbit/s  "
            << holes << " parts missing so far" << std::flush;
  progress_shown_ = true;
}

void Events::line(const std::string& text) {
  clear_progress();
  std::cout << text << std::endl;
}

void Events::clear_progress() {
  if (progress_shown_) std::cout << "\r\033[K" << std::flush;
  progress_shown_ = false;
}
