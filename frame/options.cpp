#include "frame/options.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <sstream>
#include <string_view>
#include <variant>

#include "softlib/numbers.h"
#include "state/settings.h"

namespace {

using Setter = void (*)(const std::string&);
using Field = std::variant<int Settings::*, double Settings::*, std::string Settings::*, Setter>;

struct Option {
  char letter;
  Field field;
};

const Option kOptions[] = {
    {'a', &use_charset},
    {'b', &Settings::blk_mask},
    {'c', &Settings::time_wait},
    {'d', &Settings::data_send},
    {'e', &Settings::blk_ext},
    {'f', &Settings::sdir},
    {'g', &Settings::logs_name},
    {'i', &Settings::ip},
    {'j', &Settings::scan_list_name},
    {'k', &Settings::trash_active},
    {'l', &Settings::logs},
    {'m', &Settings::mode},
    {'o', &Settings::config_name},
    {'p', &Settings::port},
    {'q', &Settings::send_serv},
    {'r', &Settings::time_rescan},
    {'s', &Settings::speed},
    {'t', &Settings::udata_size},
    {'u', &Settings::head_send},
    {'v', &Settings::verboze},
    {'w', &Settings::dir_name},
    {'x', &Settings::time_send_wait},
    {'y', &Settings::trash_path},
    {'z', &Settings::zero_ign},
};

constexpr char kCommandLineOnly[] = {'o', 'r'};

void set_send_buffer(const std::string& value) {
  constexpr int kMost = std::numeric_limits<int>::max();  // setsockopt(2) takes an int
  const auto bytes = to_bytes(value);
  if (bytes && *bytes > 0 && *bytes <= kMost) {
    settings.send_buffer = static_cast<int>(*bytes);
  } else {
    settings.refusal = "--send-buffer=" + value + ": not a size; 1 to " + std::to_string(kMost) +
                       " bytes, or a number with K, M or G behind it";
  }
}

void set_metrics(const std::string& value) {
  settings.metrics = value;
  if (value.empty()) settings.refusal = "--metrics= has no value";
}

void set_seal(const std::string& /*value*/) { settings.seal = true; }

/// Takes the value, which may not be empty, of an option that switches on "--seal", too.
void set_with_seal(std::string Settings::*field, const char* name, const std::string& value) {
  settings.seal = true;
  settings.*field = value;
  if (value.empty()) settings.refusal = std::string(name) + "= has no value";
}

void set_repair(const std::string& value) { set_with_seal(&Settings::repair, "--repair", value); }
void set_sign(const std::string& value) { set_with_seal(&Settings::sign, "--sign", value); }

enum class Shape {
  kValue,  ///< "--name=value", in both places
  kWord,   ///< "--name", on the command line only; its setter is called with ""
  kSwitch  ///< "--name", in both places; its setter is called with ""
};

struct LongOption {
  std::string_view name;
  Shape shape;
  Field field;
};

const LongOption kLongOptions[] = {
    {"--metrics", Shape::kValue, &set_metrics},         {"--repair", Shape::kValue, &set_repair},
    {"--run-dir", Shape::kValue, &Settings::run_dir},   {"--seal", Shape::kSwitch, &set_seal},
    {"--send-buffer", Shape::kValue, &set_send_buffer}, {"--sign", Shape::kValue, &set_sign},
};

const Option* find_option(char letter) {
  const auto* found = std::find_if(std::begin(kOptions), std::end(kOptions),
                                   [=](const Option& option) { return option.letter == letter; });
  return found == std::end(kOptions) ? nullptr : found;
}

/// Stores a value, given as text, in an option's field, whatever its type.
struct Assign {
  const std::string& value;

  void operator()(int Settings::*field) const { settings.*field = to_int(value); }
  void operator()(double Settings::*field) const { settings.*field = to_double(value); }
  void operator()(std::string Settings::*field) const { settings.*field = value; }
  void operator()(Setter set) const { set(value); }
};

/// Returns the value of an option's field as text, whatever its type.
struct Show {
  std::string operator()(int Settings::*field) const { return std::to_string(settings.*field); }
  std::string operator()(double Settings::*field) const {
    std::ostringstream text;
    text << settings.*field;
    return text.str();
  }
  std::string operator()(std::string Settings::*field) const { return settings.*field; }
  std::string operator()(Setter set) const {
    if (set == &use_charset) return settings.lcs_a;
    if (set == &set_metrics) return settings.metrics;
    if (set == &set_repair) return settings.repair;
    if (set == &set_sign) return settings.sign;
    if (set == &set_seal) return settings.seal ? "on" : "off";
    return std::to_string(settings.send_buffer);
  }
};

std::string lacks_value(const std::string& name) {
  return name + " has no value: write " + name + "=VALUE";
}

}  // namespace

bool apply_setting(char letter, const std::string& value) {
  const Option* option = find_option(letter);
  if (option == nullptr) return false;
  std::visit(Assign{value}, option->field);
  return true;
}

bool is_config_key(char letter) {
  const bool elsewhere = std::find(std::begin(kCommandLineOnly), std::end(kCommandLineOnly),
                                   letter) != std::end(kCommandLineOnly);
  return !elsewhere && find_option(letter) != nullptr;
}

bool is_setting(char letter) { return find_option(letter) != nullptr; }

ValueKind kind_of(char letter) {
  const Option* option = find_option(letter);
  if (option == nullptr) return ValueKind::kText;
  if (std::holds_alternative<int Settings::*>(option->field)) return ValueKind::kWhole;
  const bool real = std::holds_alternative<double Settings::*>(option->field);
  return real ? ValueKind::kReal : ValueKind::kText;
}

Word apply_long_option(const std::string& text, Place place) {
  const std::size_t equals = text.find('=');
  const bool has_value = equals != std::string::npos;
  const std::string_view name = std::string_view(text).substr(0, equals);
  Word word;
  for (const LongOption& option : kLongOptions) {
    if (option.name != name) continue;
    word.option = name;
    if (option.shape != Shape::kValue) {
      const bool may_stand = place == Place::kCommandLine || option.shape == Shape::kSwitch;
      word.heard = !may_stand ? Heard::kElsewhere : has_value ? Heard::kValue : Heard::kSet;
      if (word.heard == Heard::kSet) std::visit(Assign{""}, option.field);
    } else if (has_value) {
      word.heard = Heard::kSet;
      word.value = text.substr(equals + 1);
      std::visit(Assign{word.value}, option.field);
    } else {
      word.heard = Heard::kNoValue;
      settings.refusal = lacks_value(text);
    }
  }
  return word;
}

std::vector<InForce> settings_in_force() {
  std::vector<InForce> all;
  for (const Option& option : kOptions)
    all.push_back({std::string("-") + option.letter, std::visit(Show{}, option.field)});
  for (const LongOption& option : kLongOptions)
    all.push_back({std::string(option.name), std::visit(Show{}, option.field)});
  return all;
}
