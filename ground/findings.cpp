#include "ground/findings.h"

#include <algorithm>

std::size_t Findings::count(Weight weight) const {
  return static_cast<std::size_t>(std::count_if(
      all_.begin(), all_.end(), [=](const Finding& f) { return f.weight == weight; }));
}

const Finding* Findings::first_stop() const {
  const auto found = std::find_if(all_.begin(), all_.end(),
                                  [](const Finding& f) { return f.weight == Weight::kStop; });
  return found == all_.end() ? nullptr : &*found;
}

int Findings::status() const {
  if (first_stop() != nullptr) return 2;
  return count(Weight::kWarning) > 0 ? 1 : 0;
}

void Findings::add(Weight weight, const std::string& about, const std::string& text) {
  const bool is_said =
      std::any_of(all_.begin(), all_.end(), [&](const Finding& f) { return f.text == text; });
  if (!is_said) all_.push_back({weight, about, text});
}

const char* name_of(Weight weight) {
  switch (weight) {
    case Weight::kNote:
      return "note";
    case Weight::kWarning:
      return "warning";
    default:
      return "error";
  }
}

std::string quoted(const std::string& text) { return "\"" + text + "\""; }
