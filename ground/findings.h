// ground/findings.h: what there is to say of a setting, by the checks of both ends.
#pragma once

#include <string>
#include <vector>

enum class Weight {
  kNote,     ///< worth knowing; the status stays as it is
  kWarning,  ///< it runs, and something goes wrong
  kStop,     ///< it would not run, or could send nothing
};

struct Finding {
  Weight weight;
  std::string about;  ///< its subject, one of a few words
  std::string text;
};

class Findings {
 public:
  void note(const std::string& about, const std::string& text) { add(Weight::kNote, about, text); }
  void warn(const std::string& about, const std::string& text) {
    add(Weight::kWarning, about, text);
  }
  void stop(const std::string& about, const std::string& text) { add(Weight::kStop, about, text); }

  const std::vector<Finding>& all() const { return all_; }

  /// How many have this weight.
  std::size_t count(Weight weight) const;

  /// The first that would keep the sender from running; null if none does.
  const Finding* first_stop() const;

  /// The exit status: 0 nothing to say, 1 warnings, 2 it would not run.
  int status() const;

 private:
  /// The same is said once.
  void add(Weight weight, const std::string& about, const std::string& text);

  std::vector<Finding> all_;
};

/// "note", "warning" or "error".
const char* name_of(Weight weight);

/// `text` between quotation marks.
std::string quoted(const std::string& text);
