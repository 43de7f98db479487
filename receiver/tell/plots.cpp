#include "receiver/tell/plots.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>

#include "receiver/tell/summary.h"

namespace {

constexpr std::size_t kMostSpans = 90;
constexpr double kMbit = 1048576;

// Sizes of the drawing, in its own units; a telephone shows about one pixel for each.
constexpr double kWidth = 360;
constexpr double kHeight = 170;
constexpr double kLeft = 44;
constexpr double kTop = 10;
constexpr double kBottom = 148;

double span_width(double seconds) {
  constexpr double kMinute = 60, kHour = 3600, kDay = 86400;
  for (const double width :
       {1., 2., 5., 10., 30., kMinute, 2 * kMinute, 5 * kMinute, 10 * kMinute, 30 * kMinute, kHour,
        2 * kHour, 6 * kHour, 12 * kHour, kDay, 7 * kDay}) {
    if (seconds / width < static_cast<double>(kMostSpans) - 1) return width;
  }
  return std::ceil(seconds / (static_cast<double>(kMostSpans) - 1) / kDay) * kDay;
}

bool is_time(double seconds) { return seconds > 0 && seconds < 1e12; }  // false for NaN, too

/// The span that `time` is in, the nearest one for a time outside.
std::size_t span_of(const Timeline& timeline, double time) {
  const double at = std::floor((time - timeline.start) / timeline.width);
  return static_cast<std::size_t>(std::clamp(at, 0.0, static_cast<double>(timeline.spans - 1)));
}

double arrived_bytes(const TransferRecord& record) {
  if (record.parts == 0) return 0;
  return static_cast<double>(record.size) * static_cast<double>(record.received) /
         static_cast<double>(record.parts);
}

/// The next of 1, 2, 5, 10, 20 ... that is not below `value`.
double round_up(double value) {
  if (!(value > 0)) return 1;
  const double power = std::pow(10, std::floor(std::log10(value)));
  for (const double step : {1.0, 2.0, 5.0}) {
    if (step * power >= value) return step * power;
  }
  return 10 * power;
}

std::string number(double value, const char* format = "%.5g") {
  std::array<char, 32> text{};
  (void)std::snprintf(text.data(), text.size(), format, value);
  return text.data();
}

std::string text_at(double x, double y, const char* anchor, const std::string& text) {
  return "<text x=\"" + number(x) + "\" y=\"" + number(y) + "\" text-anchor=\"" + anchor + "\">" +
         text + "</text>";
}

std::string bar(const Timeline& timeline, std::size_t i, double value, double most,
                const std::string& unit) {
  const double step = (kWidth - kLeft) / static_cast<double>(timeline.spans);
  const double height = std::max((kBottom - kTop) * value / most, value > 0 ? 0.7 : 0);
  return "<rect x=\"" + number(kLeft + step * static_cast<double>(i)) + "\" y=\"" +
         number(kBottom - height) + "\" width=\"" + number(step * 0.85) + "\" height=\"" +
         number(height) + "\"><title>" +
         local_time(timeline.start + timeline.width * static_cast<double>(i)) + ": " +
         number(value, "%.3g") + " " + unit + "</title></rect>";
}

}  // namespace

Timeline timeline_of(const std::vector<TransferRecord>& records) {
  double first = 0, last = 0;
  for (const TransferRecord& record : records) {
    if (!is_time(record.first_packet)) continue;
    first = first == 0 ? record.first_packet : std::min(first, record.first_packet);
    last = std::max(last, record.first_packet);
    if (is_time(record.last_packet)) last = std::max(last, record.last_packet);
  }
  if (first == 0) return {};
  Timeline timeline;
  timeline.width = span_width(last - first);
  timeline.start = std::floor(first / timeline.width) * timeline.width;
  timeline.spans = static_cast<std::size_t>((last - timeline.start) / timeline.width) + 1;
  return timeline;
}

Series loss_over(const Timeline& timeline, const std::vector<TransferRecord>& records) {
  std::vector<FirstPass> sums(timeline.spans);
  for (const TransferRecord& record : records) {
    if (!is_time(record.first_packet)) continue;
    const FirstPass pass = first_pass_of(record);
    FirstPass& sum = sums[span_of(timeline, record.first_packet)];
    sum.parts += pass.parts;
    sum.lost += pass.lost;
  }
  Series series(timeline.spans);
  for (std::size_t i = 0; i < sums.size(); ++i) {
    if (sums[i].parts == 0) continue;
    series[i] = 100 * static_cast<double>(sums[i].lost) / static_cast<double>(sums[i].parts);
  }
  return series;
}

Series rate_over(const Timeline& timeline, const std::vector<TransferRecord>& records) {
  Series series(timeline.spans, 0.0);
  for (const TransferRecord& record : records) {
    if (!is_time(record.first_packet)) continue;
    const double from = record.first_packet;
    const double to = is_time(record.last_packet) ? std::max(record.last_packet, from) : from;
    const double mbits = arrived_bytes(record) * 8 / kMbit;
    const std::size_t last = span_of(timeline, to);
    for (std::size_t i = span_of(timeline, from); i <= last; ++i) {
      const double begin = timeline.start + timeline.width * static_cast<double>(i);
      const double inside = std::min(to, begin + timeline.width) - std::max(from, begin);
      const double share = to > from ? std::clamp(inside / (to - from), 0.0, 1.0) : 1;
      *series[i] += mbits * share / timeline.width;
    }
  }
  return series;
}

std::string svg_of(const Timeline& timeline, const Series& series, const std::string& title,
                   const std::string& unit) {
  double most = 0;
  for (const auto& value : series) most = std::max(most, value.value_or(0));
  most = round_up(most);
  std::string svg = "<svg viewBox=\"0 0 " + number(kWidth) + " " + number(kHeight) +
                    "\" role=\"img\" aria-label=\"" + title + "\">";
  for (const double share : {0.0, 0.5, 1.0}) {
    const double y = kBottom - (kBottom - kTop) * share;
    svg += "<path d=\"M" + number(kLeft) + " " + number(y) + "H" + number(kWidth) + "\"/>" +
           text_at(kLeft - 5, y + 4, "end", number(most * share));
  }
  for (std::size_t i = 0; i < series.size(); ++i) {
    if (series[i]) svg += bar(timeline, i, *series[i], most, unit);
  }
  const double end = timeline.start + timeline.width * static_cast<double>(timeline.spans);
  constexpr std::size_t kMinutes = 16;  // characters of a time without its seconds
  return svg +
         text_at(kLeft, kHeight - 6, "start", local_time(timeline.start).substr(0, kMinutes)) +
         text_at(kWidth, kHeight - 6, "end", local_time(end).substr(0, kMinutes)) + "</svg>";
}
