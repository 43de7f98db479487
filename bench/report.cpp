#include "bench/report.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <iostream>
#include <numeric>
#include <sstream>

void Samples::add(const Samples& others) {
  values_.insert(values_.end(), others.values_.begin(), others.values_.end());
}

double Samples::percentile(double share) const {
  if (values_.empty()) return 0;
  std::vector<double> sorted = values_;
  std::sort(sorted.begin(), sorted.end());
  const double at = share * static_cast<double>(sorted.size() - 1);
  const auto below = static_cast<std::size_t>(std::floor(at));
  const auto above = static_cast<std::size_t>(std::ceil(at));
  return sorted[below] + (at - std::floor(at)) * (sorted[above] - sorted[below]);
}

double Samples::mean() const {
  if (values_.empty()) return 0;
  return std::accumulate(values_.begin(), values_.end(), 0.0) / static_cast<double>(values_.size());
}

Samples ratios(const Samples& a, const Samples& b) {
  Samples result;
  for (std::size_t i = 0; i < a.size() && i < b.size(); ++i) result.add(a[i] / b[i]);
  return result;
}

std::string number(double value, int digits) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(digits) << value;
  return text.str();
}

std::string spread(const Samples& samples, int digits) {
  if (samples.empty()) return "-";
  return number(samples.median(), digits) + " (" + number(samples.least(), digits) + ".." +
         number(samples.most(), digits) + ")";
}

void Table::print() const {
  std::vector<std::size_t> widths(rows_.front().size(), 3);
  for (const auto& cells : rows_) {
    for (std::size_t i = 0; i < cells.size(); ++i) widths[i] = std::max(widths[i], cells[i].size());
  }
  for (const auto& cells : rows_) {
    for (std::size_t i = 0; i < cells.size(); ++i) {
      std::cout << "| " << std::setw(static_cast<int>(widths[i]))
                << (i == 0 ? std::left : std::right) << cells[i] << " ";
    }
    std::cout << "|\n";
    if (&cells != &rows_.front()) continue;
    for (std::size_t i = 0; i < widths.size(); ++i) {
      std::cout << "|" << (i == 0 ? "-" : "") << std::string(widths[i] + 1, '-')
                << (i == 0 ? "" : ":");
    }
    std::cout << "|\n";
  }
  std::cout << std::endl;
}
