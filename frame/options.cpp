#include "frame/options.h"

#include <algorithm>
#include <iterator>
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

const Option* find_option(char letter) {
  const auto* found = std::find_if(std::begin(kOptions), std::end(kOptions),
                                   [=](const Option& option) { return option.letter == letter; });
  return found == std::end(kOptions) ? nullptr : found;
}

/// Puts the text into the kind of field that an option has.
struct Assign {
  const std::string& value;

  void operator()(int Settings::*field) const { settings.*field = to_int(value); }
  void operator()(double Settings::*field) const { settings.*field = to_double(value); }
  void operator()(std::string Settings::*field) const { settings.*field = value; }
  void operator()(Setter set) const { set(value); }
};

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
