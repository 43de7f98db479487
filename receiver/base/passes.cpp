#include "receiver/base/passes.h"

#include <algorithm>
#include <array>
#include <cstdio>

std::string percent(std::uint64_t lost, std::uint64_t of) {
  const double value = 100.0 * static_cast<double>(lost) / static_cast<double>(of);
  if (lost > 0 && value < 0.1) return "<0.1 %";
  std::array<char, 16> text{};
  (void)std::snprintf(text.data(), text.size(), "%.1f %%", value);
  return text.data();
}

std::vector<Pass> passes_of(const TransferRecord& record) {
  const std::size_t count =
      std::max(record.received_per_pass.size(), record.repeated_per_pass.size());
  std::vector<Pass> passes(count);
  for (std::size_t i = 0; i < count; ++i) {
    Pass& pass = passes[i];
    if (i < record.received_per_pass.size()) pass.fresh = record.received_per_pass[i];
    if (i < record.repeated_per_pass.size()) pass.repeated = record.repeated_per_pass[i];
    const std::uint64_t seen = pass.fresh + pass.repeated;
    const bool open = record.outcome == Outcome::kReceiving ||
                      record.outcome == Outcome::kRefused || record.missing.empty();
    pass.lost = seen < record.parts ? record.parts - seen : 0;
    const bool is_over = record.repaired > 0;  // repair parts come behind the last pass
    pass.ended = pass.lost == 0 || i + 1 < count || !open || is_over;
  }
  return passes;
}

std::string passes_text(const TransferRecord& record, const std::vector<Pass>& passes) {
  std::string text;
  for (std::size_t i = 0; i < passes.size(); ++i) {
    const Pass& pass = passes[i];
    if (i > 0) text += "; ";
    text += "pass " + std::to_string(i + 1) + ": " + std::to_string(pass.fresh) + "+" +
            std::to_string(pass.repeated) + " of " + std::to_string(record.parts);
    if (pass.ended) {
      text += ", " + percent(pass.lost, record.parts) + " lost";
    } else {
      text += record.missing.empty() ? " when complete" : " so far";
    }
  }
  return text;
}
