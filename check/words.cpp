#include "check/words.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdlib>
#include <map>

#include "softlib/numbers.h"

namespace {

constexpr char kBlanks[] = " \t\r";

/// True for an empty line or a comment.
bool says_nothing(const Word& word) {
  const std::size_t begin = word.text.find_first_not_of(kBlanks);
  return !word.file.empty() && (begin == std::string::npos || word.text[begin] == '#');
}

bool looks_like_upper_case(const std::string& text) {
  return text.size() > 2 && text[0] == '-' &&
         std::isupper(static_cast<unsigned char>(text[1])) != 0;
}

/// Returns where the number at the start of `text` ends; 0 if there is no number.
std::size_t number_end(const std::string& text, ValueKind kind) {
  std::size_t begin = text.find_first_not_of(" \t");
  if (begin == std::string::npos) return 0;
  if (text[begin] == '+') ++begin;
  const char* const first = text.data() + begin;
  const char* const last = text.data() + text.size();
  double real = 0;
  if (kind == ValueKind::kReal) {
    const char* const end = std::from_chars(first, last, real).ptr;
    return end == first ? 0 : static_cast<std::size_t>(end - text.data());
  }
  const std::size_t digits = text[begin] == '-' ? begin + 1 : begin;
  const std::size_t end = std::min(text.find_first_not_of("0123456789", digits), text.size());
  return end == digits ? 0 : end;
}

void check_number(const Word& word, const std::string& where, Findings& findings) {
  const std::size_t end = number_end(word.value, word.kind);
  const std::string sets = where + " sets " + word.option + " to ";
  if (end == 0) {
    findings.warn("words", sets + "0: " + quoted(word.value) + " is no number");
  } else if (end < word.value.size() && word.value[end] != '\r') {
    findings.warn("words", sets + word.value.substr(0, end) + ": " +
                               quoted(word.value.substr(end)) + " behind the number is ignored");
  } else if (word.kind == ValueKind::kWhole &&
             std::strtol(word.value.c_str(), nullptr, 10) != to_int(word.value)) {
    findings.warn("words", sets + std::to_string(to_int(word.value)) + ": the number is too large");
  }
}

/// Finds lines such as "please ask ...", which set an option by accident.
void check_separator(const Word& word, const std::string& where, Findings& findings) {
  const std::size_t at = word.file.empty() ? 2 : 1;
  if (word.option.size() != 2 || word.text.size() <= at) return;
  if (std::isalnum(static_cast<unsigned char>(word.text[at])) == 0) return;
  findings.warn("words", where + " sets " + word.option + " to " + quoted(word.value) +
                             ": the character behind the letter counts as \":\"");
}

void check_set(const Word& word, const std::string& where, Findings& findings) {
  check_separator(word, where, findings);
  if (word.kind != ValueKind::kText) return check_number(word, where, findings);
  if (word.option == "-w") findings.warn("words", where + " is kept and used for nothing");
  const std::string& value = word.value;
  const bool is_quoted = value.size() > 1 && value.front() == value.back() &&
                         (value.front() == '"' || value.front() == '\'');
  if (is_quoted) findings.warn("words", where + ": the quotation marks are part of the value");
}

void check_word(const Word& word, Findings& findings) {
  const std::string where = place_of(word) + ", " + quoted(word.text) + ",";
  switch (word.heard) {
    case Heard::kUnknown:
      if (says_nothing(word)) return;
      findings.warn("words", where + " is no option and has no effect" +
                                 (looks_like_upper_case(word.text) ? ": letters are small" : ""));
      return;
    case Heard::kNoValue:
      // for a long option this is an error, which is reported elsewhere
      if (word.option.size() > 2) return;
      findings.warn("words", where + " has no value and sets nothing: write " +
                                 (word.file.empty() ? "-" : "") + word.option.substr(1) +
                                 ":VALUE, without a blank");
      return;
    case Heard::kValue:
      findings.warn("words", where + " sets nothing: " + word.option + " takes no value");
      return;
    case Heard::kElsewhere:
      findings.warn("words", where + " sets nothing: " + word.option +
                                 " is an option of the command line only");
      return;
    case Heard::kSet:
      return check_set(word, where, findings);
    case Heard::kOpened:
      return;
  }
}

void check_repeated(const std::vector<Word>& words, Findings& findings) {
  std::map<std::string, const Word*> set;
  for (const Word& word : words) {
    if (word.heard != Heard::kSet || word.option == "-o" || word.option == "-h") continue;
    const Word*& before = set[word.option];
    // overriding a file that -o has read is what arguments are for
    if (before != nullptr && (before->file.empty() || before->file == word.file)) {
      findings.warn("words", place_of(*before) + ", " + quoted(before->text) + ", has no effect: " +
                                 place_of(word) + " sets " + word.option + " again");
    }
    before = &word;
  }
}

}  // namespace

void check_words(const ReadWords& words, Findings& findings) {
  for (const auto* part : {&words.config, &words.command_line}) {
    for (const Word& word : *part) check_word(word, findings);
    check_repeated(*part, findings);
  }
}
