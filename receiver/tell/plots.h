// receiver/tell/plots.h: how loss and rate went over time, drawn as SVG.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "receiver/base/record.h"

/// Equal spans of time that cover all transfers; none without transfers.
struct Timeline {
  double start = 0;  ///< seconds since 1970
  double width = 1;  ///< s, of one span
  std::size_t spans = 0;
};
Timeline timeline_of(const std::vector<TransferRecord>& records);

/// One value a span; none where there is nothing to tell.
using Series = std::vector<std::optional<double>>;

/// Percent of the parts that first passes lost, of the transfers that began in the span.
Series loss_over(const Timeline& timeline, const std::vector<TransferRecord>& records);

/// Mbit/s (1 Mbit = 1,048,576 bits) of file contents that arrived, each transfer's
/// spread evenly from its first to its last packet.
Series rate_over(const Timeline& timeline, const std::vector<TransferRecord>& records);

/// A bar for each value, as an <svg> element that the page's style colours. `title` and
/// `unit` are put in as they are.
std::string svg_of(const Timeline& timeline, const Series& series, const std::string& title,
                   const std::string& unit);
