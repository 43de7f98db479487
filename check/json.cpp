#include <array>
#include <cstdio>

#include "check/report.h"

namespace {

/// Returns the bytes of the UTF-8 character (RFC 3629) at `at` of `text`; 0 if there is none.
std::size_t utf8_length(const std::string& text, std::size_t at) {
  const auto byte = [&](std::size_t i) {
    return at + i < text.size() ? static_cast<unsigned char>(text[at + i]) : 0U;
  };
  const unsigned first = byte(0);
  const std::size_t length = first < 0x80                      ? 1
                             : first >= 0xC2 && first < 0xE0   ? 2
                             : first >= 0xE0 && first < 0xF0   ? 3
                             : first >= 0xF0 && first <= 0xF4U ? 4
                                                               : 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0U) != 0x80) return 0;
  }
  const bool overlong = (first == 0xE0 && byte(1) < 0xA0) || (first == 0xF0 && byte(1) < 0x90);
  const bool beyond = (first == 0xED && byte(1) >= 0xA0) || (first == 0xF4 && byte(1) >= 0x90);
  return overlong || beyond ? 0 : length;
}

/// Returns a JSON string (RFC 8259). A byte that is not valid UTF-8 becomes the text "\xHH".
std::string json(const std::string& text) {
  std::string result = "\"";
  std::array<char, 8> escape{};
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = utf8_length(text, at);
    const auto byte = static_cast<unsigned char>(text[at]);
    if (length == 0) {
      std::snprintf(escape.data(), escape.size(), "\\\\x%02X", byte);
      result += escape.data();
    } else if (byte < 0x20) {
      std::snprintf(escape.data(), escape.size(), "\\u%04x", byte);
      result += escape.data();
    } else if (byte == '"' || byte == '\\') {
      result += {'\\', text[at]};
    } else {
      result.append(text, at, length);
    }
    at += length == 0 ? 1 : length;
  }
  return result + "\"";
}

/// Writes the members of an object, or the elements of an array, one on each line.
class List {
 public:
  List(std::ostream& out, const char* open, const char* close) : out_(out), close_(close) {
    out_ << open;
  }
  ~List() { out_ << close_; }
  List(const List&) = delete;
  List& operator=(const List&) = delete;

  std::ostream& next() {
    out_ << (is_first_ ? "\n    " : ",\n    ");
    is_first_ = false;
    return out_;
  }

 private:
  std::ostream& out_;
  const char* close_;
  bool is_first_ = true;
};

void print_settings(const Report& report, std::ostream& out) {
  List list(out, "  \"settings\": [", "],\n");
  for (const Origin& setting : report.settings) {
    list.next() << "{\"option\": " << json(setting.option)
                << ", \"meaning\": " << json(setting.meaning)
                << ", \"value\": " << json(setting.value) << ", \"place\": " << json(setting.place)
                << "}";
  }
}

void print_findings(const Report& report, std::ostream& out) {
  List list(out, "  \"findings\": [", "]");
  for (const Finding& finding : report.findings.all()) {
    list.next() << "{\"weight\": " << json(name_of(finding.weight))
                << ", \"about\": " << json(finding.about) << ", \"text\": " << json(finding.text)
                << "}";
  }
}

void print_file(const Verdict& file, std::ostream& out) {
  out << "{\"path\": " << json(file.path) << ", \"goes\": " << (file.goes ? "true" : "false");
  if (file.goes) {
    out << ", \"receiver\": " << json(file.receiver) << ", \"arrives\": " << json(file.arrives)
        << ", \"bytes\": " << file.size << ", \"seconds\": " << file.seconds << "}";
  } else {
    out << ", \"why\": " << json(file.why) << "}";
  }
}

void print_files(const Report& report, std::ostream& out) {
  {
    List list(out, ",\n  \"files\": [", "],\n");
    for (const Verdict& file : report.files) print_file(file, list.next());
  }
  const Total total = total_of(report.files);
  out << "  \"total\": {\"files\": " << total.files << ", \"bytes\": " << total.bytes
      << ", \"seconds\": " << total.seconds << "}";
}

}  // namespace

void print_json(const Report& report, std::ostream& out) {
  out << "{\n  \"program\": " << json(report.program) << ",\n  \"folder\": " << json(report.folder)
      << ",\n  \"status\": " << report.findings.status() << ",\n";
  print_settings(report, out);
  print_findings(report, out);
  if (report.has_files) print_files(report, out);
  out << "\n}\n";
}
