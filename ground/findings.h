// ground/findings.h: what the checks of the sender and of the receiver found out.
#pragma once

#include <string>
#include <vector>

enum class Weight {
  kNote,     ///< worth knowing; the status stays as it is
  kWarning,  ///< the program runs, but something goes wrong
  kStop,     ///< the program would not run, or could do nothing
};

struct Finding {
  Weight weight;
  std::string about;  ///< its subject, such as "log" or "trash"
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

  /// Returns how many findings have this weight.
  std::size_t count(Weight weight) const;

  /// Returns the first finding of weight kStop; null if there is none.
  const Finding* first_stop() const;

  /// Returns the exit status of the check: 2 after a kStop, 1 after a warning, else 0.
  int status() const;

 private:
  /// Leaves out a text that was added before.
  void add(Weight weight, const std::string& about, const std::string& text);

  std::vector<Finding> all_;
};

/// Returns "note", "warning" or "error".
const char* name_of(Weight weight);

/// Returns `text` between quotation marks.
std::string quoted(const std::string& text);
