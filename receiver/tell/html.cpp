#include "receiver/tell/html.h"

#include "receiver/base/utf8.h"

std::string html_text(std::string_view text) {
  std::string escaped;
  for (const char c : printable(text)) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      case '\'':
        escaped += "&#39;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

std::string bdi(std::string_view text) { return "<bdi>" + html_text(text) + "</bdi>"; }

std::string plural(std::uint64_t count, const std::string& one, const std::string& many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string table_of(const std::string& attributes, const std::vector<std::string>& headings) {
  std::string text = "<table " + attributes + "><thead><tr>";
  for (const std::string& heading : headings) {
    const bool number = heading[0] == '#';
    text += std::string("<th scope=col") + (number ? " class=n>" : ">") + heading.substr(number);
  }
  return text + "</thead><tbody>\n";
}

std::string cell(const char* kind, const std::string& content, const char* label) {
  std::string tag = std::string("<td class=") + kind;
  if (label != nullptr) tag += std::string(" data-l=") + label;
  return tag + ">" + content;  // the next cell or row closes it
}

std::string outcome_cell(const char* name) { return cell(name, name); }

std::string left_out(std::size_t all, std::size_t shown) {
  if (all <= shown) return "";
  return "<p class=soft>" + std::to_string(all - shown) +
         " older ones are left out; <code>tarnwick-receive report</code> lists all.</p>\n";
}
