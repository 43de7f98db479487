// bench/report.h: numbers of several rounds, and the tables made of them.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// The values of one quantity: a round each, or a packet each.
class Samples {
 public:
  void add(double value) { values_.push_back(value); }
  void add(const Samples& others);

  bool empty() const { return values_.empty(); }
  std::size_t size() const { return values_.size(); }
  double operator[](std::size_t i) const { return values_[i]; }

  /// The value that `share` (0..1) of all are at or below; 0 if there are none.
  double percentile(double share) const;
  double median() const { return percentile(0.5); }
  double least() const { return percentile(0); }
  double most() const { return percentile(1); }
  double mean() const;

 private:
  std::vector<double> values_;
};

/// Round by round, `a` through `b`, which must be as many.
Samples ratios(const Samples& a, const Samples& b);

/// `value` with so many `digits` behind the point.
std::string number(double value, int digits);

/// "MEDIAN (LEAST..MOST)"; "-" if there are none.
std::string spread(const Samples& samples, int digits);

/// A Markdown table, its columns aligned; the first one to the left.
class Table {
 public:
  explicit Table(std::vector<std::string> head) : rows_{std::move(head)} {}
  void row(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
  void print() const;

 private:
  std::vector<std::vector<std::string>> rows_;
};
